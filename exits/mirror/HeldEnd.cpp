#include "mirror/HeldEnd.h"

#include <initializer_list>

HeldEnd::HeldEnd()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&set, number);
    }
    pthread_sigmask(SIG_BLOCK, &set, &m_former);
}

HeldEnd::~HeldEnd()
{
    pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
}

HeldEnd::Pause::Pause(const HeldEnd &held)
{
    pthread_sigmask(SIG_SETMASK, &held.m_former, &m_held);
}

HeldEnd::Pause::~Pause()
{
    pthread_sigmask(SIG_SETMASK, &m_held, nullptr);
}
