#pragma once

#include "region/RegionFollower.h"

#include <QObject>
#include <QTimer>

#include <memory>
#include <vector>

/// What all event streams tell of one region, made once for all of them.
///
/// A set is taken only when a stream has room for it, so one that is slow or stopped gets the newest when it
/// reads again, and costs nothing until then: it remembers the number of the set that it told last, and the
/// feed remembers for each leaf with which set it changed.
class LiveFeed : public QObject
{
    Q_OBJECT

public:
    explicit LiveFeed(std::shared_ptr<RegionFollower> follower);

    const RegionFollower &region() const { return *m_follower; }
    RegionFollower &region() { return *m_follower; }
    bool isUp() const { return m_follower->isUp(); }
    /// Counts how often the region came; between two answers that differ it was away.
    quint64 spell() const { return m_spell; }
    /// Why the region is away, or was last.
    const QString &absence() const { return m_absence; }
    /// Of the leaves as they are described; another description has another one.
    const QByteArray &fingerprint() const { return m_fingerprint; }
    /// What the description says of the leaves, as a JSON array.
    const QByteArray &leavesJson() const { return m_leavesJson; }

    /// The number of the newest set, which is taken if it was published since; 0 if there is none. Numbers
    /// grow, and never stand for the sets of two spells.
    quint64 newest();
    /// The data of an event `set` with what has changed since the set @p told, or with everything if that is
    /// 0. newest() has to have given a number.
    QByteArray setSince(quint64 told);
    /// The rows of it alone, a JSON array that all streams share which ask for the same.
    const QByteArray &rowsSince(quint64 told);
    /// Seconds since that set was published until now, as JSON; null without one.
    QByteArray ageJson() const;
    /// Has one consistent set for whoever asks once; false if there is none.
    bool takeSet();
    /// Objects as of `tessel get --json`, a line each, with the region and the time of the set.
    QByteArray valuesJson() const;

Q_SIGNALS:
    /// A stream may have something to tell: a set, a coming or going, or that it lives.
    void newsToTell();

private:
    /// Whether everything is told to whoever was told the set @p told.
    bool isWhole(quint64 told) const { return told < m_firstOfSpell; }
    void takeLeaves();
    void handleUp(bool isUp);
    /// Whether any has changed; those count as changed with @p number.
    bool takeRows(quint64 number);

    std::shared_ptr<RegionFollower> m_follower;
    QTimer m_pulse;
    QString m_absence;
    QByteArray m_fingerprint;
    QByteArray m_leavesJson;
    quint64 m_spell = 0;
    bool m_isPublished = true; ///< something that was not taken yet
    quint64 m_number = 0;      ///< of the set that was taken last
    quint64 m_firstOfSpell = 1;
    ProcessDataSnapshot m_former;
    std::vector<QByteArray> m_rows;     ///< by leaf, as events have them
    std::vector<quint64> m_changedWith; ///< by leaf
    // Of the set that the rows are of; the follower may have taken another one since, for somebody else.
    std::optional<QDateTime> m_time;
    std::optional<quint64> m_count;
    // Streams that keep up all ask for the same.
    quint64 m_sinceOfText = 0;
    quint64 m_numberOfText = 0;
    QByteArray m_text;
};
