#include "Access/LookPace_p.h"

#include <algorithm>

namespace {

/// Of the age of a set; its share of what may be late.
constexpr int ageParts = 8;
/// Of the way to the moment at which the next one is due, or from there.
constexpr int wayParts = 2;

} // namespace

void LookPace::note(quint64 generation, Clock::time_point now)
{
    if (m_hasSeenOne && generation == m_generation) {
        return;
    }
    // A region that somebody has made anew counts from the beginning.
    if (m_hasSeenOne && generation > m_generation) {
        m_interval = Nanoseconds((now - m_since).count()
                                 / static_cast<qint64>(generation - m_generation));
    }
    m_generation = generation;
    m_since = now;
    m_hasSeenOne = true;
}

LookPace::Nanoseconds LookPace::pause(Clock::time_point now) const
{
    const Nanoseconds age = now - m_since;
    Nanoseconds pause = age / ageParts;
    if (m_interval >= Nanoseconds::zero()) {
        const Nanoseconds way = m_interval > age ? m_interval - age : age - m_interval;
        pause = std::min(pause, way / wayParts);
    }
    return std::clamp(pause, sm_shortest, sm_longest);
}
