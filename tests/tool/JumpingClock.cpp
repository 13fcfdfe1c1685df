// Preloaded into a program: its clock is an hour ahead from the moment at which a file is there, whose path the
// environment names.

#include <cstdlib>

#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

time_t jump()
{
    constexpr time_t hour = 3600;
    const char *const path = std::getenv("JUMPING_CLOCK");
    return path != nullptr && ::access(path, F_OK) == 0 ? hour : 0;
}

} // namespace

extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t clock,
                                                            timespec *time) noexcept
{
    const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    if (result == 0 && clock == CLOCK_REALTIME) {
        time->tv_sec += jump();
    }
    return result;
}

extern "C" [[gnu::visibility("default")]] int gettimeofday(timeval *time, void * /*zone*/) noexcept
{
    constexpr long nanosecondsPerMicrosecond = 1000;
    timespec now{};
    const int result = clock_gettime(CLOCK_REALTIME, &now);
    time->tv_sec = now.tv_sec;
    time->tv_usec = now.tv_nsec / nanosecondsPerMicrosecond;
    return result;
}
