#include "regions/CreatorWatch.h"

namespace {

/// Of somebody else than a creator that has died.
constexpr std::chrono::minutes longestSilence{1};

} // namespace

void CreatorWatch::start(bool isCreatorDead, quint64 swapCount, Time now)
{
    *this = {};
    m_isLeft = isCreatorDead;
    m_swapCount = swapCount;
    m_lastSet = now;
}

void CreatorWatch::look(bool isCreatorDead, quint64 swapCount, Time now)
{
    const bool isSilent = swapCount == m_swapCount;
    if (!isSilent) {
        m_swapCount = swapCount;
        m_lastSet = now;
    }
    if (m_isLeft && (!isSilent || !isCreatorDead)) {
        goOn(isCreatorDead);
    } else if (!m_isLeft && isCreatorDead && isSilent) {
        m_isLeft = !m_hasOtherPublisher || now - m_lastSet > longestSilence;
    }
}

void CreatorWatch::handleSet(bool isCreatorDead, quint64 swapCount, Time now)
{
    if (m_isLeft && swapCount != m_swapCount) {
        m_lastSet = now;
        goOn(isCreatorDead);
    }
}

void CreatorWatch::goOn(bool isCreatorDead)
{
    m_isLeft = false;
    m_hasOtherPublisher = isCreatorDead;
}
