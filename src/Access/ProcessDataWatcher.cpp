#include "Access/ProcessDataWatcher.h"

#include "Companion/Exchange/Identity_p.h"
#include "Companion/Exchange/MappedName_p.h"
#include "Companion/Exchange/SetWaiting_p.h"
#include "ProcessDataManagement/ManagerAccess_p.h"

#include <QDebug>

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using Deadline = std::optional<Clock::time_point>; // nothing: no bound
using Lock = std::unique_lock<std::mutex>;

/// Longer than any program runs, and short enough to be added to a time.
constexpr std::chrono::hours longestBound{24 * 365 * 100};

Deadline deadlineOf(std::chrono::milliseconds bound)
{
    if (bound.count() < 0 || bound > longestBound) {
        return {};
    }
    return Clock::now() + bound;
}

SetWaiting::Management *wordsOf(ProcessDataManager &manager)
{
    ManagerAccess::beginInThisProcess(manager);
    const auto *const handler = dynamic_cast<const PingPongBufferHandler *>(
        ManagerAccess::handler(manager));
    return handler != nullptr ? SetWaiting::words(*handler) : nullptr;
}

/// Starts threads that take no signals: those are for the program's own.
class SignalsHeldBack
{
public:
    SignalsHeldBack()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_former);
    }
    ~SignalsHeldBack() { pthread_sigmask(SIG_SETMASK, &m_former, nullptr); }

private:
    Q_DISABLE_COPY(SignalsHeldBack)

    sigset_t m_former{};
};

} // namespace

/// Of all threads that wait one sleeps in the kernel, which costs the publisher as much as a single
/// waiter. The others sleep until it tells them what it has found, or that its own bound is over
/// and another one has to go there.
class ProcessDataWatcher::Private
{
public:
    explicit Private(SetWaiting::Management *words) : m_words(words), m_name(words) { }
    ~Private();
    /// In a forked child, in place of the destructor.
    void leaveToParent() const;

    bool isSupported() const { return m_words != nullptr && belongsToThisProcess(); }
    bool belongsToThisProcess() const { return m_process == Identity::generation(); }
    quint64 generation() const { return m_words->swapCount.load(std::memory_order_acquire); }

    /// Only where isSupported(), as all that follows.
    Result wait(quint64 &seen, const Deadline &deadline);
    void stop();
    int descriptor();
    Result acknowledge(quint64 &seen);

private:
    Q_DISABLE_COPY(Private)

    std::optional<Result> look(quint64 &seen);
    bool isGone();
    void sleepInKernel(Lock &lock, quint64 seen, const Deadline &deadline);
    void sleepBehindOther(Lock &lock, const Deadline &deadline);

    void tellDescriptor();
    void signal() const;
    void drain() const;

    SetWaiting::Management *const m_words;
    const MappedName m_name;
    const quint16 m_process = Identity::generation();

    std::mutex m_mutex; ///< of all that follows
    std::condition_variable m_changed;
    bool m_isStopped = false;
    bool m_isRegionGone = false;
    bool m_isInKernel = false;                   ///< a thread sleeps there for all
    int m_waiting = 0;                           ///< threads inside wait()
    Clock::time_point m_nextLook = Clock::now(); ///< at the name of the region

    int m_descriptor = -1;
    std::thread m_teller;
    bool m_isArmed = true; ///< the descriptor is to tell of the next set
    quint64 m_told = 0;    ///< the generation that acknowledge() told last
};

ProcessDataWatcher::Private::~Private()
{
    if (m_words == nullptr) {
        return;
    }
    stop();
    if (m_teller.joinable()) {
        m_teller.join();
    }
    // A thread that has just been woken is still inside.
    Lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_waiting == 0; });
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
}

void ProcessDataWatcher::Private::leaveToParent() const
{
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
}

/// What ends a wait at once.
std::optional<ProcessDataWatcher::Result> ProcessDataWatcher::Private::look(quint64 &seen)
{
    if (m_isStopped) {
        return Result::Stopped;
    }
    if (generation() != seen) {
        seen = generation();
        return Result::NewSet;
    }
    return isGone() ? std::make_optional(Result::RegionGone) : std::nullopt;
}

bool ProcessDataWatcher::Private::isGone()
{
    const auto now = Clock::now();
    if (!m_isRegionGone && now >= m_nextLook) {
        m_isRegionGone = !m_name.isCurrent();
        m_nextLook = now + SetWaiting::sm_slice;
    }
    return m_isRegionGone;
}

ProcessDataWatcher::Result ProcessDataWatcher::Private::wait(quint64 &seen,
                                                             const Deadline &deadline)
{
    Lock lock(m_mutex);
    ++m_waiting;
    auto result = look(seen);
    while (!result && (!deadline || Clock::now() < *deadline)) {
        if (m_isInKernel) {
            sleepBehindOther(lock, deadline);
        } else {
            sleepInKernel(lock, seen, deadline);
        }
        result = look(seen);
    }
    --m_waiting;
    // Whoever sleeps behind this thread hears what it has found, or takes its place.
    m_changed.notify_all();
    return result.value_or(Result::TimedOut);
}

/// All that sleep have seen the same generation, which is the present one.
void ProcessDataWatcher::Private::sleepInKernel(Lock &lock, quint64 seen, const Deadline &deadline)
{
    const std::chrono::nanoseconds left = deadline ? *deadline - Clock::now()
                                                   : SetWaiting::sm_slice;
    m_isInKernel = true;
    lock.unlock();
    SetWaiting::sleepThrough(*m_words, seen, left);
    lock.lock();
    m_isInKernel = false;
}

void ProcessDataWatcher::Private::sleepBehindOther(Lock &lock, const Deadline &deadline)
{
    if (deadline) {
        m_changed.wait_until(lock, *deadline);
    } else {
        m_changed.wait(lock);
    }
}

void ProcessDataWatcher::Private::stop()
{
    // The thread in the kernel may not have fallen asleep yet when it is woken.
    constexpr std::chrono::milliseconds wakingInterval{1};

    Lock lock(m_mutex);
    m_isStopped = true;
    m_changed.notify_all();
    while (m_isInKernel) {
        SetWaiting::wakeAll(*m_words);
        m_changed.wait_for(lock, wakingInterval);
    }
}

int ProcessDataWatcher::Private::descriptor()
{
    const Lock lock(m_mutex);
    if (m_descriptor >= 0) {
        return m_descriptor;
    }
    const int made = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (made < 0) {
        qWarning() << "No descriptor for waiting:" << std::strerror(errno);
        return -1;
    }
    try {
        const SignalsHeldBack held;
        m_teller = std::thread([this] { tellDescriptor(); });
    } catch (const std::system_error &error) {
        close(made);
        qWarning() << "No descriptor for waiting:" << error.what();
        return -1;
    }
    m_descriptor = made;
    return made;
}

/// The thread behind the descriptor.
void ProcessDataWatcher::Private::tellDescriptor()
{
    Lock lock(m_mutex);
    auto result = Result::NewSet;
    while (result == Result::NewSet) {
        m_changed.wait(lock, [this] { return m_isArmed || m_isStopped; });
        quint64 seen = m_told;
        lock.unlock();
        result = wait(seen, {});
        lock.lock();
        // It may have been acknowledged in between already.
        if (result != Result::NewSet || generation() != m_told) {
            m_isArmed = false;
            signal();
        }
    }
}

ProcessDataWatcher::Result ProcessDataWatcher::Private::acknowledge(quint64 &seen)
{
    const Lock lock(m_mutex);
    if (m_isStopped) {
        return Result::Stopped;
    }
    if (!m_isRegionGone) {
        drain();
    }
    const quint64 current = generation();
    m_told = current;
    m_isArmed = true;
    m_changed.notify_all();
    if (current != seen) {
        seen = current;
        return Result::NewSet;
    }
    return m_isRegionGone ? Result::RegionGone : Result::TimedOut;
}

void ProcessDataWatcher::Private::signal() const
{
    const quint64 one = 1;
    // It cannot fail before it was signalled 2^64 times.
    [[maybe_unused]] const ssize_t written = write(m_descriptor, &one, sizeof one);
}

void ProcessDataWatcher::Private::drain() const
{
    quint64 count = 0;
    // It fails where there is nothing, and that is as well.
    [[maybe_unused]] const ssize_t taken = read(m_descriptor, &count, sizeof count);
}

ProcessDataWatcher::ProcessDataWatcher(ProcessDataManager &manager)
    : m_private(std::make_unique<Private>(wordsOf(manager)))
{
}

ProcessDataWatcher::~ProcessDataWatcher()
{
    if (!m_private->belongsToThisProcess()) {
        // Its threads and whoever held its mutex have stayed behind in the parent.
        m_private->leaveToParent();
        static_cast<void>(m_private.release());
    }
}

quint64 ProcessDataWatcher::getGeneration() const
{
    return m_private->isSupported() ? m_private->generation() : 0;
}

ProcessDataWatcher::Result ProcessDataWatcher::wait(quint64 &seen, std::chrono::milliseconds bound)
{
    return m_private->isSupported() ? m_private->wait(seen, deadlineOf(bound))
                                    : Result::NotSupported;
}

void ProcessDataWatcher::stop()
{
    if (m_private->isSupported()) {
        m_private->stop();
    }
}

int ProcessDataWatcher::getDescriptor()
{
    if (!m_private->isSupported()) {
        qWarning() << "Waiting for sets needs a double buffer, and a watcher of this process.";
        return -1;
    }
    return m_private->descriptor();
}

ProcessDataWatcher::Result ProcessDataWatcher::acknowledge(quint64 &seen)
{
    return m_private->isSupported() ? m_private->acknowledge(seen) : Result::NotSupported;
}
