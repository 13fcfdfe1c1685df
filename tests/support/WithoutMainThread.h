#pragma once

#include "support/ChildProcess.h"

#include <thread>

#include <sys/syscall.h>

/// The body of a child whose main thread has ended before, as by pthread_exit(). The kernel takes such a
/// process for a zombie in many of its answers. Not for the sanitizer for threads, which ends a child that
/// starts one.
inline ChildProcess::Body withoutMainThread(const ChildProcess::Body &body)
{
    return [body](const ChildSide &side) {
        std::thread([&body, &side] {
            while (processState(getpid()) != 'Z') {
                sched_yield();
            }
            _exit(body(side));
        }).detach();
        // The stack stays as it is, with what the test has on it.
        syscall(SYS_exit, 0);
        return 1;
    };
}
