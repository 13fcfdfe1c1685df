#include "torture/WaitJudge.h"

#include <algorithm>

namespace Torture {

namespace {

/// Longer than any call that is judged.
constexpr qint64 memory = 60 * second;

/// A watchdog that wakes up so late has seen the whole machine stand still.
constexpr qint64 notableOversleep = 50 * millisecond;

bool isStandingStill(const Sample &sample, int slot, Excuse excuse)
{
    return sample.isStopped[slot] || (excuse == Excuse::AnyStop && sample.isHolderStopped);
}

/// What the holder of @p before lacked until @p after; that of the waiting process counts apart.
qint64 starvedHolder(const Sample &before, const Sample &after, int slot)
{
    const int holder = before.holder;
    return holder < 0 || holder == slot ? 0 : after.starved[holder] - before.starved[holder];
}

} // namespace

void WaitJudge::add(const Sample &sample)
{
    m_samples.push_back(sample);
    while (m_samples.front().time < sample.time - memory) {
        m_samples.pop_front();
    }
}

qint64 WaitJudge::unexplained(int slot, qint64 begin, qint64 end, Excuse excuse) const
{
    qint64 stopped = 0;
    qint64 starved = 0;
    for (std::size_t i = 1; i < m_samples.size(); ++i) {
        const Sample &before = m_samples[i - 1];
        const Sample &after = m_samples[i];
        const qint64 overlap = std::min(end, after.time) - std::max(begin, before.time);
        if (overlap <= 0) {
            continue;
        }
        if (isStandingStill(before, slot, excuse) || isStandingStill(after, slot, excuse)) {
            stopped += overlap;
            continue;
        }
        starved += after.starved[slot] - before.starved[slot];
        starved += starvedHolder(before, after, slot);
        starved += after.overslept >= notableOversleep ? after.overslept : 0;
    }
    // The kernel counts a time without processor only when it is over, so that single intervals may
    // show more than they are long; the whole wait cannot.
    const qint64 rest = end - begin - stopped;
    return std::max(rest - starved, qint64{0});
}

} // namespace Torture
