#pragma once

#include <csignal>
#include <cstdio>
#include <stdexcept>

#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

/// A process that runs one function until it is killed, on a processor of its own.
///
/// The parent is tied to the first processor it may use, the child to the second: a scheduler that
/// moves two spinning processes about would be measured instead of them.
class ForkedChild
{
public:
    /// Throws if there is no second processor.
    template <class Body>
    explicit ForkedChild(const Body &body)
    {
        useProcessor(0);
        std::fflush(nullptr);
        m_pid = fork();
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            useProcessor(1);
            body();
            _exit(0);
        }
    }
    ~ForkedChild()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            wait();
        }
    }

    /// Waits until the function has returned.
    void wait()
    {
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }

    ForkedChild(const ForkedChild &) = delete;
    ForkedChild &operator=(const ForkedChild &) = delete;

private:
    /// The processors this process was started with, whatever it was tied to since.
    static const cpu_set_t &allowed()
    {
        static const cpu_set_t set = [] {
            cpu_set_t processors;
            sched_getaffinity(0, sizeof processors, &processors);
            return processors;
        }();
        return set;
    }

    static void useProcessor(int index)
    {
        if (CPU_COUNT(&allowed()) < 2) {
            throw std::runtime_error("an exchange between processes wants two processors");
        }
        cpu_set_t chosen;
        CPU_ZERO(&chosen);
        for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
            if (CPU_ISSET(processor, &allowed()) && index-- == 0) {
                CPU_SET(processor, &chosen);
            }
        }
        sched_setaffinity(0, sizeof chosen, &chosen);
    }

    pid_t m_pid = -1;
};
