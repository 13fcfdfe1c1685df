#pragma once

#include <QtGlobal>

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

/// What the calling thread remembers of its locks: the read locks that it holds, how often its last
/// reads had to be repeated, and which set it has finished but not published.
///
/// Lies in thread-local memory, so that a read lock costs neither a system call nor a word that
/// threads share.
namespace LockNotes {

/// The few words that nearly every access asks for.
struct Summary
{
    int noteCount;               ///< read locks that this thread holds
    int streakCount;             ///< places where its last read had to be repeated
    quint64 newestHandler;       ///< handler of its newest read lock; 0 if it holds none
    unsigned char *newestBuffer; ///< what that lock handed out
};

// Reached without a call, as the words of a thread of the program itself are. The room for such
// words is small in a library that is loaded later, hence a summary and not all the notes. In this
// form, unlike thread_local, an access from another file needs no look at a constructor.
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

/// A number for a new handler. Unlike an address it never comes back.
quint64 newHandlerNumber();

void add(const ReadLockNote &note);
/// Takes out the newest note of the handler that handed @p buffer out.
std::optional<ReadLockNote> take(quint64 handler, const unsigned char *buffer);
/// Read locks of the handler that this thread holds.
int count(quint64 handler);
/// What the newest read lock of the handler handed out; null if this thread holds none.
unsigned char *newestBuffer(quint64 handler);
/// Drops all that this thread remembers of a handler that goes away.
void forget(quint64 handler);

/// How many times in a row a read at this depth had to be repeated.
int repeatsInARow(quint64 handler, int depth);
void noteOutcome(quint64 handler, int depth, bool repeat);

/// The epoch in which this thread last finished a set, until it swaps.
void noteFinishedSet(quint64 handler, quint64 epoch);
std::optional<quint64> takeFinishedSet(quint64 handler);

} // namespace LockNotes
