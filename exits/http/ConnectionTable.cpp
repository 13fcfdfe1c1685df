#include "http/ConnectionTable.h"

#include <algorithm>
#include <vector>

#include <poll.h>
#include <sys/socket.h>

namespace {

/// Above the limit.
constexpr int heardAtOnce = 16;
/// For which those may keep their place from others.
constexpr std::chrono::seconds hearingTime{2};
/// For answers to what was asked before the other side said that it asks no more.
constexpr std::chrono::seconds partingTime{1};

/// Whether the other side sends nothing any more, and all that it sent was read. The HTTP library does not hear of
/// it where the end came together with a request.
bool isLeft(int descriptor)
{
    pollfd look{descriptor, POLLRDHUP, 0};
    char next = 0;
    return poll(&look, 1, 0) > 0 && recv(descriptor, &next, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

} // namespace

void ConnectionTable::setLimits(int connections, std::chrono::seconds time)
{
    m_most = connections;
    m_time = time;
}

ConnectionTable::Place ConnectionTable::add(int descriptor)
{
    const bool isAdmitted = m_admitted < m_most;
    const auto time = isAdmitted ? m_time : std::min(m_time, hearingTime);
    m_connections.insert(descriptor, {Clock::now() + time, isAdmitted, Phase::Asking});
    m_admitted += isAdmitted ? 1 : 0;
    if (isAdmitted) {
        return Place::Admitted;
    }
    return m_connections.size() - m_admitted > heardAtOnce ? Place::Refused : Place::Heard;
}

void ConnectionTable::remove(int descriptor)
{
    const auto known = m_connections.find(descriptor);
    if (known != m_connections.end()) {
        m_admitted -= known->isAdmitted ? 1 : 0;
        m_connections.erase(known);
    }
}

bool ConnectionTable::admit(int descriptor)
{
    const auto known = m_connections.find(descriptor);
    if (known == m_connections.end() || (!known->isAdmitted && m_admitted >= m_most)) {
        return false;
    }
    m_admitted += known->isAdmitted ? 0 : 1;
    known->isAdmitted = true;
    return true;
}

void ConnectionTable::beginRequest(int descriptor)
{
    const auto known = m_connections.find(descriptor);
    if (known != m_connections.end() && known->phase == Phase::Silent) {
        known->phase = Phase::Asking;
        known->deadline = Clock::now() + m_time;
    }
}

void ConnectionTable::beginAnswer(int descriptor)
{
    const auto known = m_connections.find(descriptor);
    if (known != m_connections.end()) {
        known->phase = Phase::Answering;
    }
}

void ConnectionTable::endRequest(int descriptor)
{
    const auto known = m_connections.find(descriptor);
    if (known != m_connections.end()) {
        known->phase = Phase::Silent;
        known->deadline = Clock::now() + m_time;
    }
}

void ConnectionTable::allowAnyTime(int descriptor)
{
    const auto known = m_connections.find(descriptor);
    if (known != m_connections.end()) {
        known->deadline = Clock::time_point::max();
    }
}

void ConnectionTable::noticeBeginnings()
{
    std::vector<pollfd> silent;
    for (auto each = m_connections.cbegin(); each != m_connections.cend(); ++each) {
        if (each->phase == Phase::Silent) {
            silent.push_back({each.key(), POLLIN, 0});
        }
    }
    if (silent.empty() || poll(silent.data(), silent.size(), 0) <= 0) {
        return;
    }
    for (const auto &each : silent) {
        if ((each.revents & POLLIN) != 0) {
            beginRequest(each.fd);
        }
    }
}

void ConnectionTable::shutDownOldOnes()
{
    const Clock::time_point now = Clock::now();
    for (auto each = m_connections.begin(); each != m_connections.end(); ++each) {
        if (each->deadline < now) {
            ::shutdown(each.key(), SHUT_RDWR);
        } else if (each->phase != Phase::Answering && isLeft(each.key())) {
            each->deadline = std::min(each->deadline, now + partingTime);
        }
    }
}
