#pragma once

#include "mirror/SourceState.h"

/// What one mirror has shown so far.
class MirrorCount
{
public:
    /// @p now: microseconds since 1970, of the clock of this machine.
    void addShown(const ReceivedSet &set, qint64 now);

    /// Of the set that came last, at its source.
    quint64 generation() const { return m_generation; }
    quint64 sets() const { return m_sets; }
    /// Sets between two of one source that were shown. What a source published before is not among them.
    quint64 leftOut() const { return m_leftOut; }
    /// Microseconds that the newest took, by the clocks of both machines.
    qint64 lag() const { return m_lag; }

private:
    QByteArray m_source;
    quint32 m_attachment = 0;
    quint64 m_generation = 0;
    quint64 m_sets = 0;
    quint64 m_leftOut = 0;
    qint64 m_lag = 0;
};
