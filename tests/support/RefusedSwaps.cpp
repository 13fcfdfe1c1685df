#include "support/RefusedSwaps.h"

#include "ProcessDataManagement/ProcessDataManager.h"

#include <QtDebug>

#include <cstring>

#include <dlfcn.h>

std::atomic<bool> RefusedSwaps::sm_isAlive = false;

/// In front of the library's.
bool ProcessDataManager::swapReadAndWriteBuffer()
{
    if (RefusedSwaps::sm_isAlive) {
        qWarning() << "No swap now.";
        return false;
    }
    using Swap = bool (ProcessDataManager::*)();
    static const Swap original = [] {
        const void *const function = dlsym(RTLD_NEXT,
                                           "_ZN18ProcessDataManager22swapReadAndWriteBufferEv");
        Swap swap = nullptr;
        std::memcpy(&swap, &function, sizeof function);
        return swap;
    }();
    return (this->*original)();
}
