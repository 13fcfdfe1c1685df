#include "torture/CaughtSignal.h"

#include <csignal>

namespace Torture {

namespace {

const int endingSignals[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t caughtNumber = 0;

void catchSignal(int number)
{
    caughtNumber = number;
}

} // namespace

void catchSignals()
{
    struct sigaction action
    {
    };
    action.sa_handler = catchSignal;
    for (const int number : endingSignals) {
        sigaction(number, &action, nullptr);
    }
}

int caughtSignal()
{
    return caughtNumber;
}

void ignoreSignals()
{
    for (const int number : endingSignals) {
        signal(number, SIG_IGN);
    }
}

} // namespace Torture
