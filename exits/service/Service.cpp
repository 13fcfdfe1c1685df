#include "service/Service.h"

#include "service/Refusal.h"

#include <QSocketNotifier>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>

#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace {

sigset_t takenSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&set, number);
    }
    return set;
}

/// Microseconds of the clock that the service manager compares with.
quint64 monotonicMicroseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return quint64(now.tv_sec) * 1000000 + quint64(now.tv_nsec) / 1000;
}

void tell(const QString &state)
{
    // Nobody has to be there to hear it.
    sd_notify(0, state.toUtf8().constData());
}

} // namespace

Service::Service(QObject *parent) : QObject(parent), m_watchdog(this)
{
    const sigset_t set = takenSignals();
    m_descriptor = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (m_descriptor < 0) {
        throw Refusal{ExitCode::Internal,
                      QStringLiteral("signalfd: %1").arg(qt_error_string(errno))};
    }
    pthread_sigmask(SIG_BLOCK, &set, &m_former);
    m_readable = new QSocketNotifier(m_descriptor, QSocketNotifier::Read, this);
    connect(m_readable, &QSocketNotifier::activated, this, &Service::takeSignals);
    startWatchdog();
}

Service::~Service()
{
    // Before the descriptor is closed.
    delete m_readable;
    ::close(m_descriptor);
    pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
}

void Service::tellReady(const QString &status)
{
    tell(QStringLiteral("READY=1\nSTATUS=%1").arg(status));
}

void Service::tellStatus(const QString &status)
{
    tell(QStringLiteral("STATUS=%1").arg(status));
}

void Service::takeSignals()
{
    signalfd_siginfo taken{};
    bool isReload = false;
    bool isEnd = false;
    while (::read(m_descriptor, &taken, sizeof taken) == static_cast<ssize_t>(sizeof taken)) {
        (taken.ssi_signo == SIGHUP ? isReload : isEnd) = true;
    }
    if (isEnd) {
        tell(QStringLiteral("STOPPING=1"));
        Q_EMIT endAsked();
    } else if (isReload) {
        tell(QStringLiteral("RELOADING=1\nMONOTONIC_USEC=%1").arg(monotonicMicroseconds()));
        Q_EMIT reloadAsked();
    }
}

void Service::startWatchdog()
{
    using namespace std::chrono;
    uint64_t bound = 0;
    if (sd_watchdog_enabled(0, &bound) <= 0) {
        return;
    }
    // Twice within the bound, from the event loop: one that hangs is what the watchdog is there for.
    connect(&m_watchdog, &QTimer::timeout, this, [] { tell(QStringLiteral("WATCHDOG=1")); });
    m_watchdog.start(
        std::max(duration_cast<milliseconds>(microseconds(bound) / 2), milliseconds(1)));
}
