#include "text/SignalWait.h"

#include "text/DescriptorCure.h"
#include "text/Failure.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <vector>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

sigset_t endingSignals(SignalWait::Signals signals)
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&set, signal);
    }
    if (signals == SignalWait::Signals::FullScreen) {
        // A key of the terminal, which would be left with its modes changed.
        sigaddset(&set, SIGQUIT);
    }
    return set;
}

sigset_t setOf(SignalWait::Signals signals)
{
    sigset_t set = endingSignals(signals);
    if (signals != SignalWait::Signals::Ending) {
        sigaddset(&set, SIGWINCH);
        sigaddset(&set, SIGTSTP);
    }
    if (signals == SignalWait::Signals::FullScreen) {
        sigaddset(&set, SIGCONT);
    }
    return set;
}

[[noreturn]] void failInternally(const char *call)
{
    const int error = errno;
    const QString reason = QStringLiteral("%1: %2").arg(QString::fromLatin1(call),
                                                        qt_error_string(error));
    const QString cure = descriptorCure(error);
    throw cure.isEmpty() ? Failure{ExitCode::Internal, reason}
                         : Failure{ExitCode::NoAccess, reason + QLatin1String("; ") + cure};
}

} // namespace

SignalWait::SignalWait(Signals signals) : m_signals(signals)
{
    const sigset_t set = setOf(signals);
    m_fd = signalfd(-1, &set, SFD_CLOEXEC);
    if (m_fd < 0) {
        failInternally("signalfd");
    }
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

SignalWait::~SignalWait()
{
    const sigset_t set = setOf(m_signals);
    const sigset_t ending = endingSignals(m_signals);
    const timespec noTime = {};
    // The program ends in order already; a second one must not end it in the middle of that.
    while (m_isEnding && sigtimedwait(&ending, nullptr, &noTime) > 0) { }
    ::close(m_fd);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

SignalWait::Event SignalWait::wait()
{
    return fetch();
}

SignalWait::Event SignalWait::waitUntil(Clock::time_point deadline)
{
    // A descriptor below zero is none.
    return waitUntilReadable(-1, deadline);
}

SignalWait::Event SignalWait::waitUntilReadable(int descriptor)
{
    pollfd waited[] = {{m_fd, POLLIN, 0}, {descriptor, POLLIN, 0}};
    while (poll(waited, 2, -1) < 0) {
        if (errno != EINTR) {
            failInternally("poll");
        }
    }
    return waited[0].revents != 0 ? fetch() : Event::Readable;
}

SignalWait::Event SignalWait::waitUntilReadable(int descriptor, Clock::time_point deadline)
{
    return waitUntilReadable({descriptor}, deadline);
}

SignalWait::Event SignalWait::waitUntilReadable(std::initializer_list<int> descriptors,
                                                Clock::time_point deadline)
{
    using std::chrono::milliseconds;
    std::vector<pollfd> waited{{m_fd, POLLIN, 0}};
    for (const int descriptor : descriptors) {
        waited.push_back({descriptor, POLLIN, 0});
    }
    while (true) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        const int count = poll(waited.data(), waited.size(),
                               static_cast<int>(std::max<qint64>(left.count(), 0)));
        if (count > 0) {
            return waited[0].revents != 0 ? fetch() : Event::Readable;
        }
        if (count == 0) {
            return Event::TimePassed;
        }
        if (errno != EINTR) {
            failInternally("poll");
        }
    }
}

SignalWait::Event SignalWait::fetch()
{
    signalfd_siginfo signal{};
    while (::read(m_fd, &signal, sizeof signal) < 0) {
        if (errno != EINTR) {
            failInternally("read");
        }
    }
    switch (signal.ssi_signo) {
    case SIGWINCH: return Event::Resized;
    case SIGTSTP: return Event::Stop;
    case SIGCONT: return Event::Continued;
    default: m_isEnding = true; return Event::End;
    }
}
