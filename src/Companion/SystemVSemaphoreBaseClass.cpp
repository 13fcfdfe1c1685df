#include "Companion/SystemVSemaphoreBaseClass.h"

#include <QCryptographicHash>
#include <QDebug>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace {

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// Any user may take part, as in the memory that the semaphores guard.
constexpr int permissions = 0666;
/// A set without fingerprint is one that its maker is about to fill in, or that its maker died over.
constexpr int initialisationPolls = 1000;
constexpr timespec initialisationPause{0, 1000000};
/// Each further try follows on somebody else removing or making the set in between. From the second
/// one on there is time for a user who has closed the set and is about to open it again.
constexpr int openingTries = 100;
constexpr timespec openingPause{0, 1000000};
/// Each further try follows on another user leaving in between, of which there are at most 32767.
/// More often than that it fails only in a set whose count of users somebody has spoilt.
constexpr int leavingTries = 40000;

/// The argument of semctl(), which its caller has to declare.
union SemaphoreArgument {
    int value;
    semid_ds *status;
    unsigned short *values;
};

QByteArray hashOf(const QString &key)
{
    return QCryptographicHash::hash(key.toUtf8(), QCryptographicHash::Sha256);
}

QString reason(int error)
{
    return QString::fromStdString(std::generic_category().message(error));
}

sembuf change(unsigned short semaphore, short amount, int flags)
{
    return {semaphore, amount, static_cast<short>(flags)};
}

timespec toTimespec(Clock::duration duration)
{
    const auto nanoseconds = std::chrono::nanoseconds(duration).count();
    constexpr long long perSecond = 1000000000;
    return {static_cast<time_t>(nanoseconds / perSecond),
            static_cast<long>(nanoseconds % perSecond)};
}

bool isRemoved(int error)
{
    return error == EIDRM || error == EINVAL;
}

enum class Recognition {
    Ours,
    Foreign,
    Unfinished,
    Vanished,
    Former,    ///< Of the same text, in the former format, and in use.
    FormerLeft ///< The same without a user.
};

/// The set of the former format: one semaphore less, so that programs of both versions refuse each
/// other's.
constexpr std::size_t formerCount = 8;
constexpr std::size_t formerUsers = 2;

/// Whether a set of so many semaphores as the former format had is one of that.
template <std::size_t Count>
Recognition recogniseFormer(int semaphoreId, const std::array<unsigned short, Count> &expected,
                            std::size_t firstOfFingerprint)
{
    std::array<unsigned short, formerCount> values{};
    SemaphoreArgument argument{};
    argument.values = values.data();
    if (semctl(semaphoreId, 0, GETALL, argument) != 0
        || !std::equal(expected.cbegin() + static_cast<std::ptrdiff_t>(firstOfFingerprint),
                       expected.cend(),
                       values.cend() - static_cast<std::ptrdiff_t>(Count - firstOfFingerprint))) {
        return Recognition::Foreign;
    }
    return values[formerUsers] == 0 ? Recognition::FormerLeft : Recognition::Former;
}

/// Whether the values of a set carry the fingerprint that @p expected has behind its first
/// semaphores.
template <std::size_t Count>
Recognition recognise(int semaphoreId, const std::array<unsigned short, Count> &expected,
                      std::size_t firstOfFingerprint)
{
    semid_ds status{};
    SemaphoreArgument argument{};
    argument.status = &status;
    if (semctl(semaphoreId, 0, IPC_STAT, argument) != 0) {
        return isRemoved(errno) ? Recognition::Vanished : Recognition::Foreign;
    }
    if (status.sem_nsems == formerCount) {
        return recogniseFormer(semaphoreId, expected, firstOfFingerprint);
    }
    if (status.sem_nsems != Count) {
        return Recognition::Foreign;
    }
    std::array<unsigned short, Count> values{};
    argument.values = values.data();
    if (semctl(semaphoreId, 0, GETALL, argument) != 0) {
        return isRemoved(errno) ? Recognition::Vanished : Recognition::Foreign;
    }
    const bool isEmpty = std::all_of(values.cbegin(), values.cend(),
                                     [](unsigned short value) { return value == 0; });
    // Somebody else's set may be empty as well, but then it has been used.
    if (isEmpty && status.sem_otime == 0) {
        return Recognition::Unfinished;
    }
    for (std::size_t i = firstOfFingerprint; i < Count; ++i) {
        if (values[i] != expected[i]) {
            return Recognition::Foreign;
        }
    }
    return Recognition::Ours;
}

/// Why a set of that recognition cannot be used.
void warnOfOthers(Recognition recognition, const QString &key)
{
    if (recognition == Recognition::Former) {
        qWarning() << "The semaphores of" << key << "are of another memory format and in use."
                   << "Run all programs with one version of the library.";
        return;
    }
    qWarning() << "The semaphores of" << key << "can't be used: System V key"
               << SystemVSemaphoreBaseClass::systemVKey(key)
               << "belongs to somebody else (ipcs -s). Choose another memory key.";
}

/// For who joins alone, and could not.
void warnOfMissingRights(const QString &key, int error)
{
    qWarning()
        << "Can't join the semaphores of" << key << reason(error)
        << ", and without them a single buffer cannot be read reliably: run as a user who may"
           " alter them (ipcs -s shows owner and mode).";
}

bool mayNotBeSeen(int semaphoreId)
{
    semid_ds status{};
    SemaphoreArgument argument{};
    argument.status = &status;
    return semctl(semaphoreId, 0, IPC_STAT, argument) != 0 && errno == EACCES;
}

/// Gives a maker that is just at it the time to fill the set in.
template <std::size_t Count>
Recognition recogniseFinished(int semaphoreId, const std::array<unsigned short, Count> &expected,
                              std::size_t firstOfFingerprint)
{
    Recognition recognition = recognise(semaphoreId, expected, firstOfFingerprint);
    for (int i = 0; i < initialisationPolls && recognition == Recognition::Unfinished; ++i) {
        nanosleep(&initialisationPause, nullptr);
        recognition = recognise(semaphoreId, expected, firstOfFingerprint);
    }
    return recognition;
}

void setWaiting(sembuf *operations, std::size_t count, bool mayWait)
{
    for (std::size_t i = 0; i < count; ++i) {
        const int flags = operations[i].sem_flg;
        operations[i].sem_flg = static_cast<short>(mayWait ? flags & ~IPC_NOWAIT
                                                           : flags | IPC_NOWAIT);
    }
}

} // namespace

SystemVSemaphoreBaseClass::SystemVSemaphoreBaseClass(const QString &key, CreationType type)
    : m_ownerProcess(getpid())
{
    if (type == CreationTypeJoin) {
        joinExisting(key);
    } else {
        open(key, type);
    }
}

SystemVSemaphoreBaseClass::~SystemVSemaphoreBaseClass()
{
    if (isValid() && belongsToThisProcess()) {
        leaveSet(setId());
    }
}

key_t SystemVSemaphoreBaseClass::systemVKey(const QString &key)
{
    const QByteArray hash = hashOf(key);
    quint32 number = 0;
    for (int i = 0; i < 4; ++i) {
        number = (number << 8) | static_cast<unsigned char>(hash[i]);
    }
    // Keys are signed; the conversion keeps the bits.
    const auto candidate = static_cast<key_t>(number);
    return candidate == IPC_PRIVATE ? 1 : candidate;
}

std::array<unsigned short, SystemVSemaphoreBaseClass::SemaphoreCount> SystemVSemaphoreBaseClass::
    initialValues(const QString &key)
{
    const QByteArray hash = hashOf(key);
    std::array<unsigned short, SemaphoreCount> values{};
    // A semaphore holds at most 32767. The bytes behind those of the key make it independent of it.
    for (int i = 0; i < sm_fingerprintCount; ++i) {
        const auto high = static_cast<unsigned char>(hash[4 + 2 * i]);
        const auto low = static_cast<unsigned char>(hash[5 + 2 * i]);
        const unsigned int number = (static_cast<unsigned int>(high) << 8 | low) & 0x7FFFU;
        // 0 means that the set is not filled in yet.
        values[std::size_t{SemaphoreFingerprint} + static_cast<std::size_t>(i)] =
            static_cast<unsigned short>(number == 0 ? 1 : number);
    }
    return values;
}

void SystemVSemaphoreBaseClass::open(const QString &key, CreationType type)
{
    const key_t number = systemVKey(key);
    for (int i = 0; i < openingTries; ++i) {
        if (i > 1) {
            nanosleep(&openingPause, nullptr);
        }
        const int made = semget(number, SemaphoreCount, IPC_CREAT | IPC_EXCL | permissions);
        const bool existed = made < 0 && errno == EEXIST;
        if (made < 0 && !existed) {
            qWarning() << "Can't make the semaphores of" << key << reason(errno)
                       << "(limits: /proc/sys/kernel/sem, sets in use: ipcs -s)";
            return;
        }
        const Opening opening = existed ? openExisting(key, type) : fillInAndJoin(key, made);
        if (opening != Opening::Disturbed) {
            return;
        }
    }
    qWarning() << "The semaphores are removed again and again:" << key;
}

void SystemVSemaphoreBaseClass::joinExisting(const QString &key)
{
    for (int i = 0; i < openingTries; ++i) {
        if (i > 1) {
            nanosleep(&openingPause, nullptr);
        }
        const Opening opening = tryToJoin(key);
        if (opening == Opening::Refused) {
            m_semaphoreId.store(sm_refusedSet, std::memory_order_release);
        }
        if (opening != Opening::Disturbed) {
            return;
        }
    }
    // Whoever locks later tries again.
}

/// Opened as well where there is nothing to join: such a set nobody uses, and who comes to write makes
/// another one.
SystemVSemaphoreBaseClass::Opening SystemVSemaphoreBaseClass::tryToJoin(const QString &key)
{
    const int existing = semget(systemVKey(key), 0, 0);
    if (existing < 0) {
        return Opening::Opened;
    }
    if (mayNotBeSeen(existing)) {
        warnOfMissingRights(key, EACCES);
        return Opening::Refused;
    }
    const Recognition recognition = recognise(existing, initialValues(key), SemaphoreFingerprint);
    switch (recognition) {
    case Recognition::Foreign:
    case Recognition::Former: warnOfOthers(recognition, key); return Opening::Refused;
    case Recognition::FormerLeft: return Opening::Opened;
    case Recognition::Unfinished:
    case Recognition::Vanished: return Opening::Disturbed;
    case Recognition::Ours: break;
    }
    const Outcome outcome = joinSet(existing);
    if (outcome == Outcome::Failed) {
        warnOfMissingRights(key, errno);
        return Opening::Refused;
    }
    if (outcome == Outcome::Done) {
        m_semaphoreId.store(existing, std::memory_order_release);
        return Opening::Opened;
    }
    return Opening::Disturbed;
}

SystemVSemaphoreBaseClass::Opening SystemVSemaphoreBaseClass::fillInAndJoin(const QString &key,
                                                                            int semaphoreId)
{
    std::array<unsigned short, SemaphoreCount> values = initialValues(key);
    SemaphoreArgument argument{};
    argument.values = values.data();
    if (semctl(semaphoreId, 0, SETALL, argument) != 0) {
        return Opening::Disturbed;
    }
    return join(key, semaphoreId);
}

SystemVSemaphoreBaseClass::Opening SystemVSemaphoreBaseClass::openExisting(const QString &key,
                                                                           CreationType type)
{
    const int existing = semget(systemVKey(key), 0, 0);
    if (existing < 0) {
        if (errno == ENOENT) {
            return Opening::Disturbed;
        }
        qWarning() << "Can't open the semaphores of" << key << reason(errno);
        return Opening::Refused;
    }
    const Recognition recognition = recogniseFinished(existing, initialValues(key),
                                                      SemaphoreFingerprint);
    switch (recognition) {
    case Recognition::Foreign:
    case Recognition::Former: warnOfOthers(recognition, key); return Opening::Refused;
    case Recognition::Vanished: return Opening::Disturbed;
    case Recognition::FormerLeft:
    case Recognition::Unfinished: return removeSet(key, existing);
    case Recognition::Ours: break;
    }
    return type == CreationTypeAttach ? join(key, existing) : replaceSet(key, existing);
}

SystemVSemaphoreBaseClass::Opening SystemVSemaphoreBaseClass::replaceSet(const QString &key,
                                                                         int semaphoreId)
{
    // Whoever attached after this creator made its memory, but before it came here, may be writing
    // into that memory under the set that is about to go. A set without its writers inside excludes
    // nobody, so it goes without one, unless that one was stopped.
    sembuf takeWriteLock[] = {change(SemaphoreWriteLock, 0, 0),
                              change(SemaphoreWriteLock, 1, SEM_UNDO)};
    const Outcome taken = operateOn(semaphoreId, takeWriteLock, 2, sm_creationWaitBound);
    const Opening removed = removeSet(key, semaphoreId);
    if (taken == Outcome::Done && removed == Opening::Refused) {
        sembuf giveBack = change(SemaphoreWriteLock, -1, SEM_UNDO);
        operateOn(semaphoreId, &giveBack, 1, Milliseconds::zero());
    }
    return removed;
}

SystemVSemaphoreBaseClass::Opening SystemVSemaphoreBaseClass::removeSet(const QString &key,
                                                                        int semaphoreId)
{
    if (semctl(semaphoreId, 0, IPC_RMID) != 0 && !isRemoved(errno)) {
        qWarning() << "Can't remove the former semaphores of" << key << reason(errno);
        return Opening::Refused;
    }
    return Opening::Disturbed;
}

SystemVSemaphoreBaseClass::Opening SystemVSemaphoreBaseClass::join(const QString &key,
                                                                   int semaphoreId)
{
    const Outcome outcome = joinSet(semaphoreId);
    if (outcome == Outcome::Done) {
        m_semaphoreId.store(semaphoreId, std::memory_order_release);
        return Opening::Opened;
    }
    if (outcome == Outcome::Failed) {
        qWarning() << "Can't join the semaphores of" << key << reason(errno);
        return Opening::Refused;
    }
    if (outcome == Outcome::WouldWait) {
        // Its last user has left and is about to remove the set, or has no right to.
        semctl(semaphoreId, 0, IPC_RMID);
    }
    return Opening::Disturbed;
}

SystemVSemaphoreBaseClass::Outcome SystemVSemaphoreBaseClass::joinSet(int semaphoreId)
{
    sembuf operations[] = {change(SemaphoreClosed, 0, 0), change(SemaphoreUsers, 1, SEM_UNDO)};
    return operateOn(semaphoreId, operations, 2, Milliseconds::zero());
}

bool SystemVSemaphoreBaseClass::joinAgain(const QString &key, const std::function<bool()> &isWanted)
{
    const int existing = semget(systemVKey(key), 0, 0);
    if (existing < 0
        || recognise(existing, initialValues(key), SemaphoreFingerprint) != Recognition::Ours
        || joinSet(existing) != Outcome::Done) {
        return false;
    }
    if (!isWanted()) {
        leaveSet(existing);
        return false;
    }
    m_semaphoreId.store(existing, std::memory_order_release);
    return true;
}

void SystemVSemaphoreBaseClass::leaveSet(int semaphoreId)
{
    for (int i = 0; i < leavingTries; ++i) {
        // The last user closes the set in the same step in which it leaves, so that nobody can join
        // a set that is about to go. If it dies before the set is gone the kernel opens it again.
        sembuf lastOne[] = {change(SemaphoreUsers, -1, SEM_UNDO), change(SemaphoreUsers, 0, 0),
                            change(SemaphoreClosed, 1, SEM_UNDO)};
        const Outcome last = operateOn(semaphoreId, lastOne, 3, Milliseconds::zero());
        if (last == Outcome::Done) {
            removeOrReopen(semaphoreId);
            return;
        }
        // Leaves only if another user stays; it may have left since the first step failed.
        sembuf oneOfMany[] = {change(SemaphoreUsers, -2, SEM_UNDO),
                              change(SemaphoreUsers, 1, SEM_UNDO)};
        if (last != Outcome::WouldWait
            || operateOn(semaphoreId, oneOfMany, 2, Milliseconds::zero()) != Outcome::WouldWait) {
            return;
        }
    }
}

void SystemVSemaphoreBaseClass::removeOrReopen(int semaphoreId)
{
    if (semctl(semaphoreId, 0, IPC_RMID) == 0 || errno != EPERM) {
        return;
    }
    // Only the user who made a set may remove it. Closed it would lock all others out.
    sembuf reopen = change(SemaphoreClosed, -1, SEM_UNDO);
    operateOn(semaphoreId, &reopen, 1, Milliseconds::zero());
}

void SystemVSemaphoreBaseClass::clearLeaseSemaphore() const
{
    SemaphoreArgument argument{};
    semctl(setId(), SemaphoreLease, SETVAL, argument);
}

bool SystemVSemaphoreBaseClass::canBeJoined(const QString &key)
{
    const int existing = semget(systemVKey(key), 0, 0);
    return existing >= 0
           && recognise(existing, initialValues(key), SemaphoreFingerprint) == Recognition::Ours;
}

int SystemVSemaphoreBaseClass::findSet(const QString &key)
{
    return semget(systemVKey(key), SemaphoreCount, 0);
}

bool SystemVSemaphoreBaseClass::isThere(int semaphoreId)
{
    return semctl(semaphoreId, SemaphoreLease, GETVAL) >= 0 || !isRemoved(errno);
}

bool SystemVSemaphoreBaseClass::belongsToThisProcess() const
{
    return getpid() == m_ownerProcess;
}

SystemVSemaphoreBaseClass::Outcome SystemVSemaphoreBaseClass::operate(
    sembuf *operations, std::size_t count, std::chrono::milliseconds bound) const
{
    return isValid() ? operateOn(setId(), operations, count, bound) : Outcome::Failed;
}

SystemVSemaphoreBaseClass::Outcome SystemVSemaphoreBaseClass::operateOn(
    int semaphoreId, sembuf *operations, std::size_t count, std::chrono::milliseconds bound)
{
    // Nearly always nobody is inside: a call that may not wait spares the kernel the timer.
    setWaiting(operations, count, false);
    if (semop(semaphoreId, operations, count) == 0) {
        return Outcome::Done;
    }
    if (errno == EAGAIN && bound > Milliseconds::zero()) {
        setWaiting(operations, count, true);
        const Clock::time_point deadline = Clock::now() + bound;
        int result = -1;
        do {
            const timespec left = toTimespec(
                std::max(deadline - Clock::now(), Clock::duration::zero()));
            result = semtimedop(semaphoreId, operations, count, &left);
        } while (result != 0 && errno == EINTR);
        if (result == 0) {
            return Outcome::Done;
        }
    }
    if (errno == EAGAIN) {
        return Outcome::WouldWait;
    }
    return isRemoved(errno) ? Outcome::Gone : Outcome::Failed;
}
