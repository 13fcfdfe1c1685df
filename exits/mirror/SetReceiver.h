#pragma once

#include "mirror/MirrorCount.h"
#include "mirror/MirrorDomain.h"
#include "mirror/MirrorMark.h"
#include "mirror/MirroredRegion.h"
#include "mirror/SampleSignal.h"
#include "mirror/SourceGate.h"
#include "mirror/WriteForwarder.h"
#include "service/BoundedLog.h"

#include <QElapsedTimer>
#include <QObject>
#include <QSet>
#include <QTimer>
#include <QUuid>

#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

struct tessel_mirror_SourceSet;

/// Takes the sets of all sources and shows each in the region that mirrors it; a region whose source is
/// lost shows `timeout`. Belongs to the thread and the event loop of its maker.
///
/// The next set of a source that is shown already is shown by the thread of the engine that has received it, so
/// that nobody else has to wake up. All else waits for the event loop, and so does a set where that is at work.
/// Neither waits for somebody who stays inside the lock of a mirror: a set that finds him there is shown when it
/// comes again, which its source says each second.
class SetReceiver : public QObject
{
    Q_OBJECT

public:
    /// @p domain has to live longer. @p watchdog: milliseconds without anything from a source until it
    /// counts as lost, whatever the engine says; 0: never. @p commands: of which leaves the source is asked for
    /// what is written into the mirrors; empty: of none. Throws a Refusal.
    SetReceiver(const MirrorDomain &domain, std::vector<std::unique_ptr<MirroredRegion>> regions,
                int watchdog, const QStringList &commands);
    ~SetReceiver() override;

    void setWatchdog(int milliseconds);

Q_SIGNALS:
    /// The first source of a region is laid out in another way: there is nothing to be mirrored.
    void layoutRefused();

private:
    struct Mirror
    {
        Mirror(std::unique_ptr<MirroredRegion> shown, const QStringList &commands)
            : region(std::move(shown))
            , sourceKey(region->sourceKey().toUtf8())
            , mark(region->key(), region->sourceKey(), commands)
            , gate(region->layout().fingerprint, region->layout().bufferSize)
        {
            watchdog.setSingleShot(true);
            // The usual one may be late by a twentieth.
            watchdog.setTimerType(Qt::PreciseTimer);
        }

        std::unique_ptr<MirroredRegion> region;
        const QByteArray sourceKey; ///< as it travels
        MirrorMark mark;
        SourceGate gate;
        MirrorCount count;
        const QByteArray own = QUuid::createUuid().toRfc4122(); ///< identity in reports
        QByteArray identity; ///< of the source; empty while there is none
        QString source;      ///< for messages; empty while there is none
        QString followed;    ///< the same of whom the gate follows, be it without a set
        QString trouble;     ///< what was told last of a source without a set
        QSet<QByteArray> refused;
        QSet<QByteArray> asked;  ///< for their layouts
        QElapsedTimer sinceSign; ///< of the source
        QTimer watchdog;         ///< looks at that; each sign would take the event loop
        std::unique_ptr<WriteForwarder> forwarder; ///< null: nothing is asked of the source
    };
    /// A source whose layout was asked for, so that the difference can be named.
    struct Question
    {
        Mirror *mirror;
        QByteArray source;
        QString host;
        int looks = 0;
        dds_entity_t reader = 0;
    };

    Mirror *mirrorOf(const tessel_mirror_SourceSet &sample) const;
    bool takeNext(dds_entity_t reader);
    bool showNext(const tessel_mirror_SourceSet &sample, const dds_sample_info_t &info);
    void takeAll();
    void take(const tessel_mirror_SourceSet &sample, const dds_sample_info_t &info);
    void show(Mirror &mirror, const ReceivedSet &set);
    void publish(Mirror &mirror, const ReceivedSet &set);
    void report(const Mirror &mirror);
    void handleWatchdog(Mirror &mirror);
    void lose(Mirror &mirror, const QString &why);
    void refuse(Mirror &mirror, const ReceivedSet &set, const QString &why);
    void askForLayout(Mirror &mirror, const ReceivedSet &set);
    void lookForLayout();
    void endQuestion(const QString &difference);

    struct SampleRoom
    {
        SampleRoom();
        ~SampleRoom();
        Q_DISABLE_COPY(SampleRoom)

        tessel_mirror_SourceSet *sample; ///< belongs to this
        dds_sample_info_t info{};
    };

    const MirrorDomain &m_domain;
    std::mutex m_mutex; ///< for the mirrors and all that follows, but for the timers and entities
    SampleRoom m_next;  ///< kept, so that each sample finds its room
    bool m_isNextLeft = false; ///< it was taken, and is left to the event loop
    std::vector<std::unique_ptr<Mirror>> m_mirrors;
    int m_watchdog;
    BoundedLog m_log{600, std::chrono::seconds(60), QStringLiteral("sources")};
    SampleSignal m_arrival;
    dds_entity_t m_reader = 0;
    dds_entity_t m_reportWriter = 0;
    std::optional<Question> m_question;
    QTimer m_reports;
    QTimer m_looks; ///< while there is a question
};
