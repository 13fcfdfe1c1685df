#pragma once

#include "Companion/BufferHandlerInterface.h"
#include "Companion/SystemVSemaphoreBaseClass.h"

#include <atomic>
#include <cstddef>
#include <memory>

class BufferLock;
struct SetNote;

/// A double buffer: readers see one complete set while writers fill the next.
///
/// Writers exclude each other through a semaphore. Readers take no lock and make no system call:
/// they read, and learn at the unlock whether a writer has begun to write into the buffer that they
/// read. A thread that had to repeat twice in a row holds writers off for its next read, so that
/// the third attempt succeeds. The first write lock after a swap brings the write buffer up to
/// date, so that a value which a writer leaves out keeps its last published content. Of several
/// writers that finish their sets one behind the other, the first swap publishes all of them, and the
/// swaps of the others find nothing left to do. If a writer died in the middle of its set, the next
/// one takes back whatever was not published.
class TESSEL_EXPORT PingPongBufferHandler : public BufferHandlerInterface
{
public:
    /// Start of a double-buffered region. All words are native byte order, all zero is the state
    /// after creation. Offsets in bytes; a cache line (64 bytes) for each kind of writer:
    ///
    ///       0                8                16
    ///       | swapCount      | format         | armed    | lastSwap | reserved ...
    ///                                                         changed by every swap; at creation
    ///      64               72               80
    ///       | writeEpoch[0]  | writeEpoch[1]  | reserved ...   changed by the first lock of an epoch
    ///     128               136              144          148        152
    ///       | copiedEpoch    | finishedCount  | writerPid | reserved | lease ...  only under the lock
    ///     192              200              208          212        216
    ///       | fingerprint    | creatorStart   | creatorPid | reserved | creatorNamespace | reserved ...
    ///                                                                     written at creation
    ///     256 ... 383
    ///       | layoutParts[0] ... [31]                                       written at creation
    ///     384 ... 447
    ///       | otherLayouts[0] ... [7]                                       by attachers
    ///     448 ... 511
    ///       | reserved, zero
    ///
    /// An epoch is the time between two swaps, numbered by swapCount. In epoch e readers use buffer
    /// e mod 2 and writers the other one.
    struct ManagementBuffer
    {
        /// A write lock that stays with a process which writes alone.
        ///
        ///     0        8        12           16           20
        ///     | word   | wanted | lastLocker | lastNumber | set
        struct LeaseWords
        {
            /// Magic 14 bits, set 16 bits, number 32 bits, state 2 bits (1 owner outside, 2 inside),
            /// the first the highest. Anything else: no lease.
            std::atomic<quint64> word;
            /// 1: somebody waits for the owner. 2: another creator has replaced this region.
            std::atomic<quint32> wanted;
            /// Who took the write semaphore last.
            std::atomic<quint32> lastLocker;
            /// The last number given to somebody who locks, or to a lease.
            std::atomic<quint32> lastNumber;
            /// 1 + the kernel's number of the set that the creator made; 0 before.
            std::atomic<quint32> set;
        };

        /// Number of swaps so far, and thereby the roles of the buffers.
        std::atomic<quint64> swapCount;
        /// formatWord() as soon as the creator has made its semaphores.
        std::atomic<quint64> format;
        /// 1 + the epoch whose end somebody waits for; 0: nobody does.
        std::atomic<quint64> armed;
        /// Nanoseconds since 1970 of the last swap, by the coarse real-time clock; 0: none yet.
        std::atomic<qint64> lastSwap;
        /// Zero.
        unsigned char reservedForSwap[32];
        /// For each buffer the last epoch in which a writer began to write into it.
        std::atomic<quint64> writeEpoch[2];
        /// Zero.
        unsigned char reservedForFirstLock[48];
        /// The epoch in which the write buffer was last brought up to date.
        std::atomic<quint64> copiedEpoch;
        /// 1 + the epoch in which a writer last finished its set; 0 before the first.
        std::atomic<quint64> finishedCount;
        /// Process that is writing; 0 if none. Still set under a free lock: that process died.
        std::atomic<quint32> writerPid;
        /// Zero.
        unsigned char reservedForWriter[4];
        /// Here, since whoever changes them is about to change the words before.
        LeaseWords lease;
        /// Zero.
        unsigned char reservedForLease[16];
        /// Of the layout by which the creator bound its leaves; 0: unknown.
        std::atomic<quint64> fingerprint;
        /// When the creator was started: field 22 of /proc/PID/stat, in clock ticks since the boot.
        std::atomic<quint64> creatorStart;
        /// The creator's process id in its own namespace; 0: unknown.
        std::atomic<quint32> creatorPid;
        /// Zero.
        unsigned char reservedForId[4];
        /// That namespace: the inode of /proc/PID/ns/pid; 0: unknown.
        std::atomic<quint64> creatorNamespace;
        /// Zero.
        unsigned char reservedForCreation[32];
        /// Of the leaves that begin in each of 32 equal parts of a buffer, so that whoever has another
        /// layout finds where. Only together with `fingerprint`.
        std::atomic<quint32> layoutParts[32];
        /// Processes that attached with another layout than the creator's: the process id in the upper half,
        /// the lower half of its start in the lower one; 0 there: it came before the fingerprint. 0: free, and so is that of a process that has ended.
        std::atomic<quint64> otherLayouts[8];
        /// Zero, for words to come.
        unsigned char reserved[64];
    };

    /// Takes addresses into a mapping that must outlive every lock. From null addresses the handler
    /// is made all the same, and its locks fail.
    PingPongBufferHandler(PingPongBufferHandler::ManagementBuffer *management, unsigned char *first,
                          unsigned char *second, SystemVSemaphoreBaseClass::CreationType type,
                          unsigned int size, const QString &semaphoreKey);
    ~PingPongBufferHandler() override;

    /// Bytes of ManagementBuffer, which lies in front of the two buffers.
    static unsigned int getSizeManagementBuffer();
    /// What says that a block is one of this version of the memory format.
    static quint64 formatWord();
    /// For a creator that is about to replace the region at @p management, whose semaphores have the
    /// key @p semaphoreKey: whoever keeps its write lock without a system call would not hear of that.
    /// Waits up to SystemVSemaphoreBaseClass::sm_creationWaitBound for such a writer inside. Does
    /// nothing to a block of another format.
    static void closeFormerRegion(PingPongBufferHandler::ManagementBuffer &management,
                                  const QString &semaphoreKey);

    BufferPointer lockForRead() override;
    bool unlockForRead(BufferPointer buffer, bool &repeat) override;
    BufferPointer lockForWrite() override;
    /// The outermost unlock of a thread finishes its set; a swap publishes it.
    bool unlockForWrite(BufferPointer buffer) override;
    BufferPointer readBufferPointer() override;
    BufferPointer writeBufferPointer() override;
    bool swapBuffers() override;
    quint32 bufferSize() override { return m_size; }

protected:
    /// For one that only reads: it takes part in no semaphores, so that only the reading operations of this
    /// class may be used.
    PingPongBufferHandler(PingPongBufferHandler::ManagementBuffer *management, unsigned char *first,
                          unsigned char *second, unsigned int size, const QString &semaphoreKey);

private:
    friend class PingPongReadingHandler;
    friend class OptimisticRead; // the library's own short way to read one value
    friend class SetWaiting;     // and to wait for the next set
    friend class HandlerNumber;

    /// So many repetitions in a row, and the next read does not begin at any moment.
    static constexpr int sm_optimisticAttempts = 2;

    bool isUsable() const;
    void joinFormat(SystemVSemaphoreBaseClass::CreationType type, const QString &semaphoreKey);
    BufferPointer buffer(quint64 index) const { return m_buffers[index & 1]; }

    bool lock(std::chrono::milliseconds bound);
    bool unlock();
    void noteNothingToPublish() const;
    bool isUnfinished() const;
    bool isPublishedAlready(const SetNote &note, quint64 epoch) const;
    bool isTakenBack(const SetNote &note, quint64 epoch) const;
    void markWriteEpoch(quint64 epoch);
    void beginWriting(quint64 epoch);
    bool takeBackUnfinishedSet(quint64 epoch);

    ManagementBuffer *m_management;
    BufferPointer m_buffers[2];
    quint32 m_size;
    quint64 m_number;                      ///< of this handler, for what threads note about it
    std::atomic<int> m_writeDepth{0};      ///< write locks of the thread that holds the lock
    std::atomic<bool> m_hasSwapped{false}; ///< inside the lock that is held
    std::unique_ptr<BufferLock> m_lock;    ///< null in one that only reads
};

static_assert(sizeof(PingPongBufferHandler::ManagementBuffer) == 512);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, format) == 8);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, armed) == 16);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, lastSwap) == 24);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, writeEpoch) == 64);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, copiedEpoch) == 128);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, finishedCount) == 136);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, writerPid) == 144);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, lease) == 152);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer::LeaseWords, wanted) == 8);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer::LeaseWords, lastLocker) == 12);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer::LeaseWords, lastNumber) == 16);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer::LeaseWords, set) == 20);
static_assert(sizeof(PingPongBufferHandler::ManagementBuffer::LeaseWords) == 24);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, fingerprint) == 192);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, creatorStart) == 200);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, creatorPid) == 208);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, creatorNamespace) == 216);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, layoutParts) == 256);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, otherLayouts) == 384);
static_assert(offsetof(PingPongBufferHandler::ManagementBuffer, reserved) == 448);
static_assert(std::atomic<quint64>::is_always_lock_free,
              "words between processes must not hide a lock");
