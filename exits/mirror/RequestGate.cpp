#include "mirror/RequestGate.h"

#include <algorithm>

namespace {

constexpr qint64 second = 1000;
constexpr double microseconds = 1000;

} // namespace

RequestGate::Mirror &RequestGate::mirrorOf(const WriteRequest &request, qint64 ticks)
{
    const auto found = m_mirrors.find(request.publisher);
    if (found != m_mirrors.end()) {
        return found.value();
    }
    if (m_mirrors.size() >= sm_mostMirrors) {
        m_mirrors.erase(std::min_element(
            m_mirrors.begin(), m_mirrors.end(),
            [](const Mirror &left, const Mirror &right) { return left.seen < right.seen; }));
    }
    Mirror mirror;
    mirror.receiver = request.receiver;
    mirror.second = ticks;
    return m_mirrors.insert(request.publisher, mirror).value();
}

std::optional<WriteAnswer> RequestGate::problemOf(const WriteRequest &request, qint64 now)
{
    if (request.values.isEmpty() || request.values.size() > WriteRequest::sm_mostValues) {
        return WriteAnswer{request.number, WriteResult::WrongUse,
                           QStringLiteral("a request holds 1 to %1 values, not %2")
                               .arg(WriteRequest::sm_mostValues)
                               .arg(request.values.size())};
    }
    // A clock may say anything, and an answer to the past would be one that nobody waits for.
    const double age = (static_cast<double>(now) - static_cast<double>(request.asked))
                       / microseconds;
    if (age > WriteRequest::sm_lifetime || age < -WriteRequest::sm_lifetime) {
        return WriteAnswer{
            request.number, WriteResult::TimedOut,
            QStringLiteral("it came %1 ms after it was asked for; %2 ms are the most")
                .arg(QString::number(age, 'f', 0))
                .arg(WriteRequest::sm_lifetime)};
    }
    return std::nullopt;
}

RequestGate::Verdict RequestGate::take(const WriteRequest &request, qint64 now, qint64 ticks)
{
    Mirror &mirror = mirrorOf(request, ticks);
    mirror.seen = ticks;
    // The engine keeps an answer for each identity, here and at every mirror, for as long as this source runs.
    if (request.receiver != mirror.receiver) {
        return {Verdict::What::LeaveAlone, {}};
    }
    // It would be like the answer to nothing.
    if (request.number == 0) {
        return {Verdict::What::Refuse,
                {0, WriteResult::WrongUse, QStringLiteral("requests are counted from 1 up")}};
    }
    if (request.number == mirror.last.number) {
        return {Verdict::What::Repeat, mirror.last};
    }
    if (request.number < mirror.last.number) {
        return {Verdict::What::LeaveAlone, {}};
    }
    if (ticks - mirror.second >= second) {
        mirror.second = ticks;
        mirror.count = 0;
    }
    const auto problem =
        ++mirror.count > sm_mostInSecond
            ? WriteAnswer{request.number, WriteResult::NoAccess,
                          QStringLiteral("more than %1 requests a second").arg(sm_mostInSecond)}
            : problemOf(request, now);
    if (problem) {
        mirror.last = *problem;
        return {Verdict::What::Refuse, *problem};
    }
    return {Verdict::What::CarryOut, {}};
}

void RequestGate::note(const WriteRequest &request, const WriteAnswer &answer)
{
    const auto found = m_mirrors.find(request.publisher);
    if (found != m_mirrors.end()) {
        found.value().last = answer;
    }
}
