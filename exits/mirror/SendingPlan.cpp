#include "mirror/SendingPlan.h"

#include <algorithm>
#include <utility>

namespace {

/// From one time that the newest is said to the next.
constexpr std::chrono::milliseconds againInterval{1000};
/// The same of one that found no room: what was said before is on its way still.
constexpr std::chrono::milliseconds roomInterval{5};

} // namespace

void SendingPlan::beginRegion()
{
    ++m_attachment;
    m_generation = 0;
    m_silentBehind = 0;
}

SendingPlan::Answer SendingPlan::take(quint64 generation, Clock::time_point now)
{
    const bool isSilent = m_state == SourceState::Silent;
    // One that waited for its turn while the silence began does not end it.
    if (generation == m_generation || (isSilent && generation <= m_silentBehind)) {
        return Answer::Leave;
    }
    m_generation = generation;
    m_readAt = now;
    m_state = SourceState::Live;
    return isSilent ? Answer::Revive : Answer::Say;
}

bool SendingPlan::tellSilent(quint64 generation)
{
    if (m_generation > generation) {
        return false;
    }
    m_silentBehind = generation;
    m_state = SourceState::Silent;
    return true;
}

void SendingPlan::noteSaid(bool hasFoundRoom, Clock::time_point now)
{
    m_isWaitingForRoom = !hasFoundRoom;
    m_saidAt = now;
    if (hasFoundRoom && m_state == SourceState::Live) {
        m_setSaidAt = now;
    }
}

std::optional<SendingPlan::Clock::time_point> SendingPlan::readAt(quint64 generation) const
{
    return generation == m_generation ? std::make_optional(m_readAt) : std::nullopt;
}

SendingPlan::Clock::time_point SendingPlan::nextTurn(Clock::time_point since) const
{
    return std::max(since, m_setSaidAt) + m_leastInterval;
}

SendingPlan::Clock::time_point SendingPlan::nextAgain(quint64 newest) const
{
    if (m_isWaitingForRoom) {
        return m_saidAt + roomInterval;
    }
    const bool isNewerThere = m_state == SourceState::Live && newest > m_generation;
    return m_saidAt + againInterval + (isNewerThere ? m_leastInterval : Clock::duration::zero());
}
