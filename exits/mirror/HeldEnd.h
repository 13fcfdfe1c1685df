#pragma once

#include <csignal>

/// While it is there nobody ends this program by SIGINT, SIGTERM or SIGHUP: what is half done then stays so. Threads that
/// are begun meanwhile leave these signals to the one that has made this.
class HeldEnd
{
public:
    /// From time to time this program may be ended, by what has come before as well.
    class Pause
    {
    public:
        explicit Pause(const HeldEnd &held);
        ~Pause();
        Pause(const Pause &) = delete;
        Pause &operator=(const Pause &) = delete;

    private:
        sigset_t m_held{};
    };

    HeldEnd();
    ~HeldEnd();
    HeldEnd(const HeldEnd &) = delete;
    HeldEnd &operator=(const HeldEnd &) = delete;

private:
    sigset_t m_former{};
};
