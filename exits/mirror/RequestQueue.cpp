#include "mirror/RequestQueue.h"

#include <algorithm>

namespace {

bool areSameLeaves(const QVector<RequestedValue> &left, const QVector<RequestedValue> &right)
{
    // Each comes in the order of the leaves.
    return std::equal(left.cbegin(), left.cend(), right.cbegin(), right.cend(),
                      [](const auto &one, const auto &other) { return one.url == other.url; });
}

} // namespace

bool RequestQueue::add(const QVector<RequestedValue> &values, qint64 ticks)
{
    // Behind those that came in between, so that the newest of each leaf is written last.
    m_requests.erase(std::remove_if(m_requests.begin(), m_requests.end(),
                                    [&](const Request &waiting) {
                                        return waiting.number == 0
                                               && areSameLeaves(waiting.values, values);
                                    }),
                     m_requests.end());
    if (m_requests.size() >= sm_mostWaiting) {
        return false;
    }
    Request request;
    request.asked = ticks;
    request.values = values;
    m_requests.enqueue(request);
    return true;
}

qint64 RequestQueue::nextTime() const
{
    const Request &first = m_requests.head();
    if (first.number != 0) {
        return first.sent + sm_repeatInterval;
    }
    return m_lastStart ? *m_lastStart + WriteRequest::sm_interval : first.asked;
}

const RequestQueue::Request *RequestQueue::takeNext(qint64 ticks)
{
    if (m_requests.isEmpty() || ticks < nextTime()) {
        return nullptr;
    }
    Request &first = m_requests.head();
    if (first.number == 0) {
        first.number = ++m_lastNumber;
        m_lastStart = ticks;
    }
    first.sent = ticks;
    return &first;
}

std::optional<RequestQueue::Request> RequestQueue::answer(quint64 number)
{
    if (m_requests.isEmpty() || number == 0 || m_requests.head().number != number) {
        return std::nullopt;
    }
    return m_requests.dequeue();
}

std::optional<RequestQueue::Request> RequestQueue::takeExpired(qint64 ticks)
{
    if (m_requests.isEmpty() || ticks - m_requests.head().asked < WriteRequest::sm_lifetime) {
        return std::nullopt;
    }
    return m_requests.dequeue();
}

std::optional<RequestQueue::Request> RequestQueue::giveUp()
{
    return m_requests.isEmpty() ? std::nullopt : std::make_optional(m_requests.dequeue());
}

std::optional<int> RequestQueue::pause(qint64 ticks) const
{
    if (m_requests.isEmpty()) {
        return std::nullopt;
    }
    const qint64 end = m_requests.head().asked + WriteRequest::sm_lifetime;
    return static_cast<int>(std::max<qint64>(0, std::min(nextTime(), end) - ticks));
}
