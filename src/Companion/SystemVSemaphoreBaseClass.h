#pragma once

#include "Companion/TesselExport.h"

#include <QString>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>

#include <sys/types.h>

struct sembuf;

/// A System V semaphore set that the users of one region share.
///
/// The set is found by a text key. Its users are counted in the set itself: the last one that ends
/// cleanly removes it, whoever that is (if the kernel lets it: only the user who made a set may
/// remove it), and a process that is killed is no longer counted, since every count is taken with
/// SEM_UNDO. A fingerprint of the text in the set tells two texts with the same System V key apart.
/// An object belongs to the process that made it.
class TESSEL_EXPORT SystemVSemaphoreBaseClass
{
public:
    /// Who begins with a clean set, and who joins.
    enum CreationType {
        CreationTypeAttach = 0, ///< Joins the set, and makes it if there is none.
        /// Removes a set that was left over and begins with a new one. Waits up to
        /// sm_creationWaitBound for a writer inside the old one.
        CreationTypeCreate = 1,
        /// Joins the set that is there. Makes none, and as long as there is none isValid() is false.
        CreationTypeJoin = 2
    };

    /// Makes or joins the set of the text @p key; isValid() tells whether that worked.
    SystemVSemaphoreBaseClass(const QString &key, CreationType type);
    /// Leaves the set. Gives back whatever this object still holds.
    virtual ~SystemVSemaphoreBaseClass();

    /// The System V key of a text: the first 32 bits of its SHA-256, never IPC_PRIVATE.
    static key_t systemVKey(const QString &key);

    /// False if the set could not be made or joined; the log says why.
    bool isValid() const { return setId() >= 0; }

    /// How long a lock waits before it fails. Long against any honest use, which takes
    /// milliseconds, so that only a process that was stopped inside its lock makes it run out.
    static constexpr std::chrono::milliseconds sm_lockWaitBound{5000};
    /// How long a creator waits for the writer inside the set that it is about to replace.
    static constexpr std::chrono::milliseconds sm_creationWaitBound{1000};

protected:
    /// The semaphores of a set. All start at 0, which means free.
    enum Semaphore : unsigned short {
        SemaphoreWriteLock = 0, ///< 1 while a writer, or a reader that holds writers off, is inside
        SemaphoreReaders = 1,   ///< readers inside a single buffer
        SemaphoreUsers = 2,     ///< objects that have joined the set
        SemaphoreClosed = 3,    ///< 1 once the last user has left: the set is about to be removed
        SemaphoreLease = 4, ///< 1 while a process keeps the write lock, though nobody may be inside
        SemaphoreFingerprint = 5, ///< first of sm_fingerprintCount values of 15 bits each
        SemaphoreCount = 9
    };

    /// What became of operate().
    enum class Outcome {
        Done,
        WouldWait, ///< The bound ran out, or waiting was not allowed.
        Gone,      ///< The set was removed.
        Failed
    };

    /// Carries out all @p operations at once or none, waiting up to @p bound for them.
    Outcome operate(sembuf *operations, std::size_t count, std::chrono::milliseconds bound) const;

    /// The same in a set that this object may have left since. Gone if it was removed.
    static Outcome operateOn(int semaphoreId, sembuf *operations, std::size_t count,
                             std::chrono::milliseconds bound);
    /// Sets SemaphoreLease to 0 and makes the kernel forget in whose name it was more.
    void clearLeaseSemaphore() const;
    /// The set that is there under @p key now; negative if there is none.
    static int findSet(const QString &key);
    /// Whether there is a set under @p key now that is one of that text.
    static bool canBeJoined(const QString &key);
    /// Whether CreationTypeJoin has found a set that this process may not use. The log says why.
    bool isRefused() const { return setId() == sm_refusedSet; }
    /// Whether the set @p semaphoreId is still there.
    static bool isThere(int semaphoreId);

    /// False in a forked child, which inherits the object, but has taken nothing itself.
    bool belongsToThisProcess() const;

    /// Which set this is to the kernel; negative without one. No number comes back soon.
    int setId() const { return m_semaphoreId.load(std::memory_order_acquire); }
    /// Takes part in the set that is there now under @p key in place of the one that was removed.
    /// Makes none and does not wait. False if there is none to be had, or if @p isWanted, asked
    /// after joining, says no; then nothing has changed.
    bool joinAgain(const QString &key, const std::function<bool()> &isWanted);

private:
    friend class RegionLockReading; // for those who look at a set without using it
    Q_DISABLE_COPY(SystemVSemaphoreBaseClass)

    static constexpr int sm_refusedSet = -2;
    static constexpr int sm_fingerprintCount = SemaphoreCount - SemaphoreFingerprint;

    enum class Opening {
        Opened,
        Refused,
        Disturbed ///< Another process removed or made the set meanwhile: try again.
    };

    static Outcome joinSet(int semaphoreId);
    static void leaveSet(int semaphoreId);
    static void removeOrReopen(int semaphoreId);
    static std::array<unsigned short, SemaphoreCount> initialValues(const QString &key);
    void open(const QString &key, CreationType type);
    void joinExisting(const QString &key);
    Opening tryToJoin(const QString &key);
    Opening fillInAndJoin(const QString &key, int semaphoreId);
    Opening openExisting(const QString &key, CreationType type);
    static Opening replaceSet(const QString &key, int semaphoreId);
    static Opening removeSet(const QString &key, int semaphoreId);
    Opening join(const QString &key, int semaphoreId);

    std::atomic<int> m_semaphoreId{-1};
    pid_t m_ownerProcess;
};
