#include "Companion/Exchange/LockWait_p.h"
#include "Companion/SystemVSemaphoreBaseClass.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int usualBound = SystemVSemaphoreBaseClass::sm_lockWaitBound.count();

} // namespace

__thread int LockWait::s_bound = usualBound;

LockWait::LockWait(std::chrono::milliseconds longest) : m_former(s_bound)
{
    s_bound = static_cast<int>(std::clamp<qint64>(longest.count(), 0, m_former));
}

std::chrono::milliseconds LockWait::takeBound()
{
    return std::chrono::milliseconds(std::exchange(s_bound, usualBound));
}
