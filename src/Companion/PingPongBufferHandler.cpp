#include "Companion/PingPongBufferHandler.h"

#include "Companion/Exchange/BufferLock_p.h"
#include "Companion/Exchange/Identity_p.h"
#include "Companion/Exchange/LockNotes_p.h"
#include "Companion/Exchange/LockWait_p.h"
#include "Companion/Exchange/OptimisticRead_p.h"
#include "Companion/Exchange/SetWaiting_p.h"
#include "Companion/Exchange/SharedBytes_p.h"
#include "Companion/FormatVersions.h"

#include <QDebug>

#include <limits>

// Why a torn set cannot be accepted. In epoch e (swapCount == e) readers use buffer e & 1, and
// whoever holds the write lock fills the other one.
//
//   writer, once an epoch and before its first store into buffer b:
//       W1  writeEpoch[b] = e            (release)
//       W2  fence(release)
//       W3  stores into buffer b         (relaxed)
//   swap:
//       S   swapCount = e + 1            (release)
//   reader:
//       R1  r = swapCount                (acquire)
//       R2  loads from buffer r & 1      (relaxed)
//       R3  fence(acquire)
//       R4  repeat = writeEpoch[r & 1] > r   (relaxed)
//
// R1 that reads S sees all W3 of the published set, and what the epochs before left. If R2 sees any
// store W3 of a later epoch, then fence W2 synchronises with fence R3 through it, R4 sees W1 or
// something newer, which is above r, and the reader repeats. A swap without a write changes no
// writeEpoch and causes no repetition. Writers are ordered among themselves by the semaphore, whose
// system calls order memory as a mutex does.
//
// What a swap outside the write lock makes of the note that its thread has (SetNote), in epoch e:
//
//   note          comes from                          the swap
//   None          nothing, or the last swap           exchanges
//   Written       a write buffer handed out, with a   exchanges: nobody knows whether all that was
//                 lock or without                     written through it is published
//   Finished(e)   the outermost unlock, in e          exchanges; false if the set was taken back
//   Finished(<e)  the same, and a swap by another     true; exchanges only if somebody took a write
//                 user published it                   lock in e
//   Refused       a lock that was not had, a swap     as Finished(<e)
//                 that was false
//
// The outermost lock makes any note Written: its unlock finishes a newer set. A bare pointer, or the
// short way of a single value, turns all but Finished(e) into Written, for what goes into the buffer of
// e is published by whoever ends e. Finished(e) stays: the set may have been taken back, and only its
// note knows. A lock that fails leaves any note but None as it is.

namespace {

/// How long a read that holds writers off waits for the writer inside. If that one was stopped the read goes on
/// without the lock: a stopped writer does not swap, so that nobody writes into what is read.
constexpr std::chrono::milliseconds heldReadBound{1000};

/// "TESSEL" in the upper six bytes of the format word, the version below.
constexpr quint64 formatMagic = 0x54455353454C;
constexpr int formatMagicShift = 16;
constexpr quint64 formatVersionMask = 0xFFFF;

} // namespace

PingPongBufferHandler::PingPongBufferHandler(PingPongBufferHandler::ManagementBuffer *management,
                                             unsigned char *first, unsigned char *second,
                                             SystemVSemaphoreBaseClass::CreationType type,
                                             unsigned int size, const QString &semaphoreKey)
    : m_management(management)
    , m_buffers{first, second}
    , m_size(size)
    , m_number(LockNotes::newHandlerNumber())
    , m_lock(std::make_unique<BufferLock>(semaphoreKey, type, management,
                                          isUsable() ? &management->lease : nullptr))
{
    joinFormat(type, semaphoreKey);
}

PingPongBufferHandler::PingPongBufferHandler(PingPongBufferHandler::ManagementBuffer *management,
                                             unsigned char *first, unsigned char *second,
                                             unsigned int size, const QString &semaphoreKey)
    : m_management(management)
    , m_buffers{first, second}
    , m_size(size)
    , m_number(LockNotes::newHandlerNumber())
{
    joinFormat(SystemVSemaphoreBaseClass::CreationTypeAttach, semaphoreKey);
}

/// A creator says which format its block has; whoever attaches to another one stays out.
void PingPongBufferHandler::joinFormat(SystemVSemaphoreBaseClass::CreationType type,
                                       const QString &semaphoreKey)
{
    if (!isUsable()) {
        return;
    }
    if (type == SystemVSemaphoreBaseClass::CreationTypeCreate) {
        m_management->format.store(formatWord(), std::memory_order_release);
        return;
    }
    // Without the magic: the creator has not come so far.
    const quint64 found = m_management->format.load(std::memory_order_acquire);
    if (found >> formatMagicShift != formatMagic || found == formatWord()) {
        return;
    }
    qWarning() << "The memory of" << semaphoreKey << "has format" << (found & formatVersionMask)
               << ", this program has format" << FormatVersions::memory
               << ". Run all programs with one version of the library.";
    m_management = nullptr;
}

quint64 PingPongBufferHandler::formatWord()
{
    return formatMagic << formatMagicShift | static_cast<quint64>(FormatVersions::memory);
}

void PingPongBufferHandler::closeFormerRegion(PingPongBufferHandler::ManagementBuffer &management,
                                              const QString &semaphoreKey)
{
    if (management.format.load(std::memory_order_acquire) == formatWord()) {
        BufferLock::closeFormer(semaphoreKey, management.lease);
    }
}

PingPongBufferHandler::~PingPongBufferHandler()
{
    LockNotes::forget(m_number);
    const bool mustWake = SetWaiting::hasSwappedInside(*this) && m_lock->wakesAtEnd();
    m_lock.reset();
    if (mustWake) {
        // The memory may be gone: the kernel, unlike this thread, may be asked for a word in it.
        SetWaiting::wakeAll(*m_management);
    }
}

unsigned int PingPongBufferHandler::getSizeManagementBuffer()
{
    return sizeof(ManagementBuffer);
}

bool PingPongBufferHandler::isUsable() const
{
    return m_management != nullptr && m_buffers[0] != nullptr && m_buffers[1] != nullptr;
}

BufferHandlerInterface::BufferPointer PingPongBufferHandler::lockForRead()
{
    if (!isUsable()) {
        return nullptr;
    }
    const int depth = LockNotes::count(m_number);
    const bool holdsWriters = LockNotes::repeatsInARow(m_number, depth) >= sm_optimisticAttempts
                              && lock(heldReadBound);
    const quint64 epoch = m_management->swapCount.load(std::memory_order_acquire);
    LockNotes::add({m_number, buffer(epoch), epoch, depth, holdsWriters});
    return buffer(epoch);
}

bool PingPongBufferHandler::unlockForRead(BufferPointer buffer, bool &repeat)
{
    repeat = false;
    const std::optional<ReadLockNote> note = LockNotes::take(m_number, buffer);
    if (!note) {
        return false;
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    repeat = m_management->writeEpoch[note->epoch & 1].load(std::memory_order_relaxed)
             > note->epoch;
    LockNotes::noteOutcome(m_number, note->depth, repeat);
    return !note->holdsSemaphore || unlock();
}

BufferHandlerInterface::BufferPointer PingPongBufferHandler::lockForWrite()
{
    if (!isUsable()) {
        return nullptr;
    }
    if (!lock(LockWait::takeBound())) {
        if (LockNotes::setNote(m_number).kind == SetNote::Kind::None) {
            noteNothingToPublish();
        }
        return nullptr;
    }
    // Only the holder changes the depth, and nobody comes between its load and its store.
    const int writeDepth = m_writeDepth.load(std::memory_order_relaxed);
    m_writeDepth.store(writeDepth + 1, std::memory_order_relaxed);
    if (writeDepth == 0) {
        if (isUnfinished()) {
            takeBackUnfinishedSet(m_management->swapCount.load(std::memory_order_relaxed));
        }
        // Asked anew: whoever gets the warning about a lost set may have swapped.
        beginWriting(m_management->swapCount.load(std::memory_order_relaxed));
        LockNotes::noteSet(m_number, {SetNote::Kind::Written, 0});
    }
    return buffer(m_management->swapCount.load(std::memory_order_relaxed) + 1);
}

bool PingPongBufferHandler::unlockForWrite(BufferPointer buffer)
{
    if (buffer == nullptr || !m_lock->isHeldHere()) {
        return false;
    }
    const int writeDepth = m_writeDepth.load(std::memory_order_relaxed);
    if (writeDepth == 0) {
        return false;
    }
    m_writeDepth.store(writeDepth - 1, std::memory_order_relaxed);
    if (writeDepth == 1) {
        const quint64 epoch = m_management->swapCount.load(std::memory_order_relaxed);
        // After all that was written: a process that dies before this point has not finished.
        m_management->writerPid.store(0, std::memory_order_release);
        // Not before that: a death in between would look like half a set on top of a finished one, and
        // a swap would report the loss of a set that nobody had finished.
        m_management->finishedCount.store(epoch + 1, std::memory_order_release);
        LockNotes::noteSet(m_number, {SetNote::Kind::Finished, epoch});
    }
    return unlock();
}

BufferHandlerInterface::BufferPointer PingPongBufferHandler::readBufferPointer()
{
    if (!isUsable()) {
        return nullptr;
    }
    // Inside a read lock the buffer of that lock: a reader that followed every swap would mix two
    // sets without either of them being written into.
    unsigned char *const locked = LockNotes::newestBuffer(m_number);
    return locked != nullptr ? locked
                             : buffer(m_management->swapCount.load(std::memory_order_acquire));
}

BufferHandlerInterface::BufferPointer PingPongBufferHandler::writeBufferPointer()
{
    return isUsable() ? OptimisticRead::writeBuffer(*this) : nullptr;
}

bool PingPongBufferHandler::swapBuffers()
{
    if (!isUsable() || !lock(SystemVSemaphoreBaseClass::sm_lockWaitBound)) {
        return false;
    }
    const quint64 epoch = m_management->swapCount.load(std::memory_order_relaxed);
    const bool isWriting = m_writeDepth.load(std::memory_order_relaxed) > 0;
    const SetNote note = LockNotes::takeSetNote(m_number);
    if (!isWriting && isPublishedAlready(note, epoch)) {
        return unlock();
    }
    const bool isComplete = isWriting
                            || (!isTakenBack(note, epoch)
                                && (!isUnfinished() || takeBackUnfinishedSet(epoch)));
    if (isComplete) {
        m_management->swapCount.store(epoch + 1, std::memory_order_release);
        // Now that readers have the set, which is what is in a hurry.
        SetWaiting::noteSwap(*this);
    } else {
        noteNothingToPublish();
    }
    if (isComplete && isWriting) {
        // This thread goes on writing, from now on into the buffer that was read until now.
        beginWriting(epoch + 1);
    }
    return unlock() && isComplete;
}

/// Takes the write lock, or one more level of it.
bool PingPongBufferHandler::lock(std::chrono::milliseconds bound)
{
    if (!m_lock->lock(bound)) {
        return false;
    }
    if (m_lock->isOutermost()) {
        // Not so in a child that was forked while its parent wrote.
        m_writeDepth.store(0, std::memory_order_relaxed);
        m_hasSwapped.store(false, std::memory_order_relaxed);
    }
    return true;
}

/// Gives the write lock back, or one level of it. Behind the outermost one, where nobody waits for this
/// thread any more, it wakes those who wait for a set.
bool PingPongBufferHandler::unlock()
{
    const bool mustWake = m_hasSwapped.load(std::memory_order_relaxed) && m_lock->isOutermost();
    const bool isUnlocked = m_lock->unlock();
    if (mustWake) {
        SetWaiting::wakeAfterSwap(*m_management);
    }
    return isUnlocked;
}

/// For a thread whose set came to nothing. If it swaps all the same, that must not exchange what
/// others have published meanwhile for the set from before.
void PingPongBufferHandler::noteNothingToPublish() const
{
    LockNotes::noteSet(m_number, {SetNote::Kind::Refused, 0});
}

/// True if another writer's swap has published what this thread finished, and nobody has written
/// since: one more exchange would bring the set from before back. Under the write lock.
bool PingPongBufferHandler::isPublishedAlready(const SetNote &note, quint64 epoch) const
{
    const bool isOver = note.kind == SetNote::Kind::Refused
                        || (note.kind == SetNote::Kind::Finished && note.epoch != epoch);
    return isOver && m_management->copiedEpoch.load(std::memory_order_relaxed) != epoch
           && !isUnfinished();
}

/// True if somebody has taken back what this thread finished in this epoch, and nobody has finished
/// anything since: there is nothing to publish. Under the write lock.
bool PingPongBufferHandler::isTakenBack(const SetNote &note, quint64 epoch) const
{
    return note.kind == SetNote::Kind::Finished && note.epoch == epoch
           && m_management->finishedCount.load(std::memory_order_relaxed) != epoch + 1;
}

/// Tells readers that the write buffer of @p epoch is about to change. Under the write lock.
void PingPongBufferHandler::markWriteEpoch(quint64 epoch)
{
    // Not before a swap inside the lock: readers of its former epoch would repeat, and without end if
    // this process died in between.
    m_management->writeEpoch[(epoch + 1) & 1].store(epoch, std::memory_order_release);
    // The words so far stand before any store into the buffer.
    std::atomic_thread_fence(std::memory_order_release);
}

/// Makes the write buffer of @p epoch ready for this thread. Under the write lock.
void PingPongBufferHandler::beginWriting(quint64 epoch)
{
    m_management->writerPid.store(Identity::processId(), std::memory_order_relaxed);
    markWriteEpoch(epoch);
    if (m_management->copiedEpoch.load(std::memory_order_relaxed) != epoch) {
        copyShared(buffer(epoch + 1), buffer(epoch), m_size);
        m_management->copiedEpoch.store(epoch, std::memory_order_relaxed);
    }
}

/// True if the former holder of the write lock died in the middle of its set. Under the write lock.
bool PingPongBufferHandler::isUnfinished() const
{
    return m_management->writerPid.load(std::memory_order_relaxed) != 0;
}

/// Brings the write buffer back to what is published, so that half of a set never is. Under the
/// write lock. False if a set that another writer had finished goes with it.
bool PingPongBufferHandler::takeBackUnfinishedSet(quint64 epoch)
{
    markWriteEpoch(epoch);
    // The mark of the dead writer stays until all is back, in case this process dies here as well.
    copyShared(buffer(epoch + 1), buffer(epoch), m_size);
    m_management->copiedEpoch.store(epoch, std::memory_order_relaxed);
    const bool wasFinished = m_management->finishedCount.load(std::memory_order_relaxed)
                             == epoch + 1;
    if (wasFinished) {
        // Before the words that tell of it, for the same reason: rather twice than never. Whoever gets
        // the message may write it into this very buffer, and is inside a lock that takes nothing back.
        m_writeDepth.fetch_add(1, std::memory_order_relaxed);
        qWarning() << "A process ended in the middle of writing process data: values that were"
                      " written but not yet published are taken back.";
        m_writeDepth.fetch_sub(1, std::memory_order_relaxed);
    }
    m_management->finishedCount.store(0, std::memory_order_relaxed);
    m_management->writerPid.store(0, std::memory_order_release);
    return !wasFinished;
}
