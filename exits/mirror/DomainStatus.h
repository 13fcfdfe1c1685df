#pragma once

#include "mirror/SourceState.h"

#include <QMap>
#include <QPair>

#include <optional>

/// What was seen of the sources and receivers of a domain, and how it is told.
class DomainStatus
{
public:
    /// What a source said of itself, but for its values.
    struct Source
    {
        QString host;
        quint8 state = 0;
        quint32 attachment = 0;
        quint64 generation = 0;
        qint64 timeStamp = 0;
        quint32 bytes = 0;
    };
    /// What a receiver said of one mirror.
    struct Receiver
    {
        QString host;
        QString mirror;
        QByteArray source; ///< empty: none
        quint64 generation = 0;
        quint64 sets = 0;
        quint64 leftOut = 0;
        qint64 lag = 0; ///< microseconds
        qint64 timeStamp = 0;
    };

    void take(const QString &region, const QByteArray &identity, const Source &source);
    void take(const QString &region, const QByteArray &identity, const Receiver &receiver);
    void removeSource(const QString &region, const QByteArray &identity);
    void removeReceiver(const QString &region, const QByteArray &identity);

    /// Rates are of the time since the last time that this was called but one, so that each has some behind it.
    void beginNextTime();

    bool isEmpty() const { return m_sources.isEmpty() && m_receivers.isEmpty(); }
    /// An object; tessel-mirror(1) has its keys.
    QByteArray json() const;
    /// A line for each, by regions. What a terminal would not print is replaced.
    QString text() const;

private:
    using Name = QPair<QString, QByteArray>;
    template <typename Said>
    struct Seen
    {
        Said first; ///< of the time that rates are of
        Said next;  ///< the same of the time to come
        Said last;
    };

    /// Whoever sends names without end fills no memory.
    static constexpr int sm_mostSeen = 1000;

    static std::optional<double> rateOf(const Seen<Source> &source);
    static std::optional<double> rateOf(const Seen<Receiver> &receiver);
    static QString lineOf(const Name &name, const Seen<Source> &source);
    static QString lineOf(const Name &name, const Seen<Receiver> &receiver);

    QMap<Name, Seen<Source>> m_sources;
    QMap<Name, Seen<Receiver>> m_receivers;
};
