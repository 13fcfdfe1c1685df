#include "Companion/Exchange/ShortWait_p.h"

#include <atomic>

#include <unistd.h>

bool ShortWait::hasSeveralProcessors()
{
    // Not those that this thread may use: with each process on a processor of its own that is one. And no
    // static object, whose guard a fork could leave locked.
    static std::atomic<long> count{0};
    long known = count.load(std::memory_order_relaxed);
    if (known == 0) {
        known = sysconf(_SC_NPROCESSORS_ONLN);
        count.store(known, std::memory_order_relaxed);
    }
    return known > 1;
}
