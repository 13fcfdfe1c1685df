#include "live/UnseenUsers.h"

#include "Companion/SystemVSemaphoreBaseClass.h"
#include "Inspection/RegionInspection.h"
#include "text/LogCollector.h"

bool hasUnseenUsers(const QString &key)
{
    if (RegionInspection(key).getLock().state == RegionLock::State::Unknown) {
        return false;
    }
    {
        const SystemVSemaphoreBaseClass semaphores(key + QLatin1String("Semaphore"),
                                                   SystemVSemaphoreBaseClass::CreationTypeAttach);
        LogCollector::takeReasons();
        if (!semaphores.isValid()) {
            return true;
        }
    }
    return RegionInspection(key).getLock().state != RegionLock::State::Unknown;
}
