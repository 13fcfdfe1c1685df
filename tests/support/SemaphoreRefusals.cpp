#include "support/SemaphoreRefusals.h"

#include <QtGlobal>

#include <cerrno>
#include <cstdarg>
#include <ctime>
#include <utility>

#include <dlfcn.h>
#include <sys/sem.h>

using SemaphoreRefusals::Call;

std::function<int(Call)> SemaphoreRefusals::refuse;
int SemaphoreRefusals::pauses = 0;

namespace {

using SemaphoreRefusals::pauses;
using SemaphoreRefusals::refuse;

int refusedCalls = 0;

bool isRefused(Call call)
{
    if (!refuse) {
        return false;
    }
    const auto asked = std::exchange(refuse, nullptr);
    const int error = asked(call);
    refuse = asked;
    refusedCalls += error != 0 ? 1 : 0;
    errno = error;
    return error != 0;
}
template <class Function>
Function original(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

Call callOf(int command)
{
    switch (command) {
    case IPC_STAT: return Call::Status;
    case GETALL: return Call::Values;
    case SETALL: return Call::FillIn;
    default: return Call::Remove;
    }
}
} // namespace

void SemaphoreRefusals::forget()
{
    refuse = nullptr;
    refusedCalls = 0;
    pauses = 0;
}

void SemaphoreRefusals::refuseFirst(Call refused, int error, int times)
{
    refuse = [refused, error, times](Call call) mutable {
        return call == refused && times-- > 0 ? error : 0;
    };
}

int SemaphoreRefusals::takeRefusedCalls()
{
    refuse = nullptr;
    return std::exchange(refusedCalls, 0);
}

#define REPLACED extern "C" Q_DECL_EXPORT

REPLACED int semget(key_t key, int count, int flags) noexcept
{
    if (isRefused((flags & IPC_CREAT) != 0 ? Call::Make : Call::Find)) {
        return -1;
    }
    return original<int (*)(key_t, int, int)>("semget")(key, count, flags);
}

REPLACED int semctl(int id, int number, int command, ...) noexcept
{
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    const bool isOfOpening = command == IPC_STAT || command == GETALL || command == SETALL
                             || command == IPC_RMID;
    if (isOfOpening && isRefused(callOf(command))) {
        return -1;
    }
    return original<int (*)(int, int, int, ...)>("semctl")(id, number, command, argument);
}

REPLACED int semop(int id, sembuf *operations, size_t count) noexcept
{
    if (isRefused(Call::Operate)) {
        return -1;
    }
    return original<int (*)(int, sembuf *, size_t)>("semop")(id, operations, count);
}

REPLACED int semtimedop(int id, sembuf *operations, size_t count, const timespec *bound) noexcept
{
    if (isRefused(Call::Wait)) {
        return -1;
    }
    return original<int (*)(int, sembuf *, size_t, const timespec *)>("semtimedop")(id, operations,
                                                                                    count, bound);
}

REPLACED int nanosleep(const timespec * /*time*/, timespec * /*left*/)
{
    ++pauses;
    return 0;
}
