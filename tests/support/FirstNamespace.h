#pragma once

#include <sys/stat.h>

/// Whether this process lives in the namespace of process ids of the machine itself, from where all
/// processes are to be seen: the kernel never gives it another number.
inline bool isInFirstNamespace()
{
    struct stat status = {};
    return stat("/proc/thread-self/ns/pid", &status) == 0 && status.st_ino == 0xEFFFFFFC;
}

/// The same for that of users and groups, in which they have the numbers that the machine itself gives them.
inline bool isInFirstUserNamespace()
{
    struct stat status = {};
    return stat("/proc/thread-self/ns/user", &status) == 0 && status.st_ino == 0xEFFFFFFD;
}
