#include <cstdlib>

#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

// Loaded before the library of the system: the time of day goes back by a day as soon as the file is there that
// TESSEL_SET_BACK names. All other clocks go on.

namespace {

int timeOf(clockid_t clock, timespec *time)
{
    constexpr time_t day = 86400;
    const long result = syscall(SYS_clock_gettime, clock, time);
    const char *const file = std::getenv("TESSEL_SET_BACK");
    if (result == 0 && clock == CLOCK_REALTIME && file != nullptr && access(file, F_OK) == 0) {
        time->tv_sec -= day;
    }
    return static_cast<int>(result);
}

} // namespace

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                                    timespec *time) noexcept
{
    return timeOf(clock, time);
}

extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval *time, void *) noexcept
{
    constexpr long nanosecondsPerMicrosecond = 1000;
    timespec now{};
    const int result = timeOf(CLOCK_REALTIME, &now);
    *time = {now.tv_sec, now.tv_nsec / nanosecondsPerMicrosecond};
    return result;
}
