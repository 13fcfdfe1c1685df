#include "Companion/Exchange/LockWait_p.h"
#include "Companion/SystemVSemaphoreBaseClass.h"

#include <algorithm>

__thread int LockWait::s_bound = SystemVSemaphoreBaseClass::sm_lockWaitBound.count();

LockWait::LockWait(std::chrono::milliseconds longest) : m_former(s_bound)
{
    s_bound = static_cast<int>(std::clamp<qint64>(longest.count(), 0, m_former));
}
