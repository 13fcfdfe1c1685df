#include "integration/DisturbedRename.h"

#include <cerrno>
#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace {

Disturbance disturbance = Disturbance::None;
int disturbedCall = 0;
int numberOfCalls = 0;

} // namespace

/// Stands before the function of the C library, for the toolkit too.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the C library's are reserved
extern "C" __attribute__((visibility("default"))) int rename(const char *from,
                                                             const char *to) noexcept
{
    ++numberOfCalls;
    const bool isDisturbed = disturbedCall == 0 || numberOfCalls == disturbedCall;
    if (isDisturbed && disturbance == Disturbance::Fail) {
        errno = EIO;
        return -1;
    }
    if (isDisturbed && disturbance == Disturbance::KillBefore) {
        kill(getpid(), SIGKILL);
    }
    const int result = renameat(AT_FDCWD, from, AT_FDCWD, to);
    if (isDisturbed && disturbance == Disturbance::KillAfter) {
        kill(getpid(), SIGKILL);
    }
    return result;
}

DisturbedRename::DisturbedRename(Disturbance kind, int call)
{
    disturbance = kind;
    disturbedCall = call;
    numberOfCalls = 0;
}

DisturbedRename::~DisturbedRename()
{
    disturbance = Disturbance::None;
}

int DisturbedRename::calls()
{
    return numberOfCalls;
}
