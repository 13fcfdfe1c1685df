#include "Access/ProcessDataWatcher.h"

#include "Access/SleepingPlace_p.h"
#include "Companion/Exchange/Identity_p.h"
#include "Companion/PingPongReadingHandler_p.h"
#include "ProcessDataManagement/ManagerAccess_p.h"

#include <QDebug>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
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

const PingPongBufferHandler *handlerOf(ProcessDataManager &manager)
{
    ManagerAccess::beginInThisProcess(manager);
    return dynamic_cast<const PingPongBufferHandler *>(ManagerAccess::handler(manager));
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

class ProcessDataWatcher::Private
{
public:
    explicit Private(const PingPongBufferHandler *handler)
        : m_words(handler != nullptr ? SetWaiting::words(*handler) : nullptr)
        , m_isUnheard(handler != nullptr && PingPongReadingHandler::isOne(*handler))
        , m_place(m_words != nullptr ? SleepingPlace::of(m_words) : nullptr)
    {
    }
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
    Result wait(Lock &lock, quint64 &seen, const Deadline &deadline);
    void sleepInKernel(Lock &lock, quint64 seen, const Deadline &deadline);
    void sleepBehindOther(Lock &lock, quint64 seen, const Deadline &deadline);
    void sleepUntilNextLook(Lock &lock, const Deadline &deadline);

    void tellDescriptor();
    void restUntilAcknowledged(Lock &lock);
    void callTeller();
    void signal() const;
    void drain() const;

    SetWaiting::Management *const m_words;
    const bool m_isUnheard; ///< The words cannot be written: no publisher hears of this watcher.
    const std::shared_ptr<SleepingPlace> m_place;
    const quint16 m_process = Identity::generation();

    // Under the mutex of the place.
    bool m_isStopped = false;
    int m_inside = 0; ///< threads inside wait() or stop()

    int m_descriptor = -1;
    std::thread m_teller;
    /// Only the teller sleeps here: of many it is one that acknowledge() concerns.
    std::condition_variable m_acknowledged;
    bool m_isArmed = true;    ///< the descriptor is to tell of the next set
    bool m_isResting = false; ///< its thread is in the kernel, though nobody wants to hear of it
    quint64 m_told = 0;       ///< the generation that acknowledge() told last
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
    // A thread that has just been woken is still inside, and so is who woke it.
    {
        Lock lock(m_place->mutex);
        m_place->changed.wait(lock, [this] { return m_inside == 0; });
    }
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
    // Before the generation: where each call finds a new set, nobody would ever look at the name.
    if (m_place->isRegionGone(*m_words) && m_place->isOverAt(seen)) {
        return Result::RegionGone;
    }
    const quint64 newest = m_place->toldOf(generation());
    if (m_isUnheard) {
        m_place->pace.note(newest, Clock::now());
    }
    if (newest == seen) {
        return std::nullopt;
    }
    seen = newest;
    return Result::NewSet;
}

ProcessDataWatcher::Result ProcessDataWatcher::Private::wait(quint64 &seen,
                                                             const Deadline &deadline)
{
    Lock lock(m_place->mutex);
    return wait(lock, seen, deadline);
}

ProcessDataWatcher::Result ProcessDataWatcher::Private::wait(Lock &lock, quint64 &seen,
                                                             const Deadline &deadline)
{
    ++m_inside;
    bool isSleeper = false;
    auto result = look(seen);
    while (!result && (!deadline || Clock::now() < *deadline)) {
        isSleeper = isSleeper || (!m_isUnheard && m_place->enterKernel(this));
        if (m_isUnheard) {
            sleepUntilNextLook(lock, deadline);
        } else if (isSleeper) {
            sleepInKernel(lock, seen, deadline);
        } else {
            sleepBehindOther(lock, seen, deadline);
        }
        result = look(seen);
    }
    --m_inside;
    if (isSleeper) {
        m_place->leaveKernel();
    } else if (m_isStopped) {
        m_place->changed.notify_all();
    }
    return result.value_or(Result::TimedOut);
}

void ProcessDataWatcher::Private::sleepInKernel(Lock &lock, quint64 seen, const Deadline &deadline)
{
    const std::chrono::nanoseconds left = deadline ? *deadline - Clock::now()
                                                   : SetWaiting::sm_slice;
    lock.unlock();
    SetWaiting::sleepThrough(*m_words, seen, left);
    lock.lock();
}

void ProcessDataWatcher::Private::sleepBehindOther(Lock &lock, quint64 seen,
                                                   const Deadline &deadline)
{
    // The other one may only be resting.
    if (!SetWaiting::arm(*m_words, seen)) {
        return;
    }
    if (deadline) {
        m_place->changed.wait_until(lock, *deadline);
    } else {
        m_place->changed.wait(lock);
    }
}

void ProcessDataWatcher::Private::sleepUntilNextLook(Lock &lock, const Deadline &deadline)
{
    const Clock::time_point now = Clock::now();
    const Clock::time_point nextLook = now + m_place->pace.pause(now);
    m_place->changed.wait_until(lock, deadline ? std::min(*deadline, nextLook) : nextLook);
}

void ProcessDataWatcher::Private::stop()
{
    // The thread in the kernel may not have fallen asleep yet when it is woken.
    constexpr std::chrono::milliseconds wakingInterval{1};

    Lock lock(m_place->mutex);
    // The thread that this ends may own the watcher, whose end waits for this one then.
    ++m_inside;
    m_isStopped = true;
    m_place->changed.notify_all();
    m_acknowledged.notify_all();
    while (m_place->isInKernel(this)) {
        SetWaiting::wakeAll(*m_words);
        m_place->changed.wait_for(lock, wakingInterval);
    }
    --m_inside;
    m_place->changed.notify_all();
}

int ProcessDataWatcher::Private::descriptor()
{
    const Lock lock(m_place->mutex);
    if (m_descriptor >= 0) {
        return m_descriptor;
    }
    const int made = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (made < 0) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the text of a known code is a constant in glibc.
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
    Lock lock(m_place->mutex);
    auto result = Result::NewSet;
    while (result == Result::NewSet) {
        restUntilAcknowledged(lock);
        quint64 seen = m_told;
        result = wait(lock, seen, {});
        // It may have been acknowledged in between already.
        if (result == Result::NewSet && m_place->toldOf(generation()) == m_told) {
            continue;
        }
        m_isArmed = false;
        // Without the lock, which is the first that whoever wakes now asks for.
        lock.unlock();
        signal();
        lock.lock();
        // Acknowledged already, perhaps before the signal: nobody is to come for that again.
        // cppcheck-suppress knownConditionTrueFalse ; acknowledge() sets it while the lock is free
        if (result == Result::NewSet && m_isArmed) {
            drain();
        }
    }
}

/// Stays in the kernel at first: from there it hears of a set as soon as acknowledge() has armed, and
/// nobody has to wake it for that. Whoever else waits for sets drives it out, once.
void ProcessDataWatcher::Private::restUntilAcknowledged(Lock &lock)
{
    if (!m_isUnheard && !m_isArmed && !m_isStopped && m_place->enterKernel(this)) {
        m_isResting = true;
        const quint64 epoch = generation();
        lock.unlock();
        SetWaiting::sleepUnarmed(*m_words, epoch, SetWaiting::sm_slice);
        lock.lock();
        m_isResting = false;
        m_place->leaveKernel();
    }
    m_acknowledged.wait(lock, [this] { return m_isArmed || m_isStopped; });
}

ProcessDataWatcher::Result ProcessDataWatcher::Private::acknowledge(quint64 &seen)
{
    const Lock lock(m_place->mutex);
    if (m_isStopped) {
        return Result::Stopped;
    }
    if (!m_place->isRegionGone(*m_words)) {
        drain();
    }
    m_told = m_place->toldOf(generation());
    m_isArmed = true;
    callTeller();
    if (m_place->isOverAt(seen)) {
        return Result::RegionGone;
    }
    if (m_told == seen) {
        return Result::TimedOut;
    }
    seen = m_told;
    return Result::NewSet;
}

/// To wait for what comes behind m_told.
void ProcessDataWatcher::Private::callTeller()
{
    if (!m_isResting) {
        m_acknowledged.notify_one();
    } else if (!SetWaiting::arm(*m_words, m_told)) {
        SetWaiting::wakeAll(*m_words);
    }
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
    : m_private(std::make_unique<Private>(handlerOf(manager)))
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
