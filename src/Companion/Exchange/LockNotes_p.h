#pragma once

#include <QtGlobal>

#include <cstddef>
#include <optional>

/// What one read lock remembers until its unlock.
struct ReadLockNote
{
    quint64 handler;       ///< number of the handler, unique in the process
    unsigned char *buffer; ///< what the lock handed out
    quint64 epoch;         ///< swaps that had happened when the lock was taken
    int depth;             ///< read locks of this handler that the thread held already
    bool holdsSemaphore;
};

/// What a thread knows of its own writing since its last swap of a double buffer.
struct SetNote
{
    enum class Kind : quint8 {
        None,     ///< It has written nothing.
        Written,  ///< It was handed a write buffer, and has finished no set since.
        Finished, ///< It has finished a set in the epoch.
        Refused   ///< It has nothing to publish: it got no lock, or its set was taken back.
    };

    Kind kind;
    quint64 epoch; ///< of a finished set
};

/// What the calling thread remembers of its locks: the read locks that it holds, how often its last
/// reads had to be repeated, and what it has written but not published.
///
/// Belongs to the thread, so that a read lock costs neither a system call nor a word that threads
/// share. A thread takes memory for it with its first lock and gives it back when it ends.
namespace LockNotes {

/// The few words that nearly every access asks for.
struct Summary
{
    int noteCount;               ///< read locks that this thread holds
    int streakCount;             ///< places where its last read had to be repeated
    quint64 newestHandler;       ///< handler of its newest read lock; 0 if it holds none
    unsigned char *newestBuffer; ///< what that lock handed out
    quint64 writtenHandler;      ///< a handler that is noted as Written; 0 if not known
};

// Reached without a call, as the words of a thread of the program itself are. That puts all
// thread-local words of the library into the room that the dynamic loader has set aside for libraries
// which a running program loads, some 1,600 bytes for all of them together: so only these few lie
// there, and the notes themselves behind a pointer. In this form, unlike thread_local, an access from
// another file needs no look at a constructor.
extern __thread Summary summary __attribute__((tls_model("initial-exec")));

/// 0 if this thread holds no read lock of any handler and none of its last reads failed.
inline quint32 business()
{
    return static_cast<quint32>(summary.noteCount) | static_cast<quint32>(summary.streakCount);
}
inline bool isIdle()
{
    return business() == 0;
}

/// A number for a new handler, which lives until forget(). Unlike an address it never comes back.
quint64 newHandlerNumber();

void add(const ReadLockNote &note);
/// Takes out the newest note of the handler that handed @p buffer out.
std::optional<ReadLockNote> take(quint64 handler, const unsigned char *buffer);
/// Read locks of the handler that this thread holds.
int count(quint64 handler);
/// The newest read lock of the handler; nothing if this thread holds none.
std::optional<ReadLockNote> newest(quint64 handler);
/// What the newest read lock of the handler handed out; null if this thread holds none.
unsigned char *newestBuffer(quint64 handler);
/// For a handler that goes away: drops what this thread remembers of it. What other threads remember of
/// its sets goes when their notes would take more memory.
void forget(quint64 handler);

/// How many times in a row a read at this depth had to be repeated.
int repeatsInARow(quint64 handler, int depth);
void noteOutcome(quint64 handler, int depth, bool repeat);

/// What this thread has written, until it swaps.
SetNote setNote(quint64 handler);
void noteSet(quint64 handler, SetNote note);
SetNote takeSetNote(quint64 handler);
/// For a buffer that is handed out in @p epoch without a lock: notes it as Written, unless a set that
/// was finished in this very epoch is noted. Need not be called where isNotedAsWritten().
void noteBareWrite(quint64 handler, quint64 epoch);
inline bool isNotedAsWritten(quint64 handler)
{
    return summary.writtenHandler == handler;
}

/// How many sets this thread has room for.
std::size_t setCapacity();

} // namespace LockNotes
