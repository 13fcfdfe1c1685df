#pragma once

#include "mirror/WriteRequest.h"

#include <QQueue>

#include <optional>

/// What was written into a mirror and waits for its source: one request is on its way at a time, and said
/// again until it is answered or nobody waits for it any more. Ticks are milliseconds of a clock that
/// nobody sets.
class RequestQueue
{
public:
    struct Request
    {
        quint64 number = 0; ///< from the first time it is sent
        qint64 asked = 0;   ///< ticks
        qint64 sent = 0;    ///< ticks, the last time
        QVector<RequestedValue> values;
    };

    /// Of several that wait for the same leaves the newest counts. False if too many wait.
    bool add(const QVector<RequestedValue> &values, qint64 ticks);
    /// The one that is to be sent now, for the first time or again; null: none.
    const Request *takeNext(qint64 ticks);
    /// The one with that number, which is done then; none if it is not the one on its way.
    std::optional<Request> answer(quint64 number);
    /// The next one that has waited for too long, which is done then.
    std::optional<Request> takeExpired(qint64 ticks);
    /// The next one that is given up; none if there is no more.
    std::optional<Request> giveUp();
    /// Ticks until something is to be sent or given up; none if nothing waits.
    std::optional<int> pause(qint64 ticks) const;

    static constexpr int sm_mostWaiting = 16;
    static constexpr int sm_repeatInterval = 500;

private:
    qint64 nextTime() const;

    QQueue<Request> m_requests; ///< the first may be on its way
    quint64 m_lastNumber = 0;
    std::optional<qint64> m_lastStart; ///< when the first one was sent for the first time
};
