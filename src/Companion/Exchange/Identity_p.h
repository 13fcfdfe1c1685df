#pragma once

#include <QtGlobal>

#include <atomic>

/// Who is asking, at the price of a load instead of a system call. Right in forked children too.
namespace Identity {

/// The words behind the questions, which only a fork changes.
namespace Words {

// Reached without a call. The room for thread-local words in a library that is loaded later is small:
// this is the only one.
extern __thread quint64 thread __attribute__((tls_model("initial-exec"), visibility("hidden")));
extern std::atomic<quint32> process __attribute__((visibility("hidden")));
extern std::atomic<quint16> generation __attribute__((visibility("hidden")));

/// For a thread that has no number yet.
quint64 newThread();
/// For a process that has not asked yet.
quint32 newProcess();

} // namespace Words

/// Of the calling thread. Never comes back, neither in this process nor in one that was forked from
/// it: what the parent's thread held is not held by the thread that goes on in the child.
inline quint64 threadNumber()
{
    return Words::thread != 0 ? Words::thread : Words::newThread();
}

/// The process id.
inline quint32 processId()
{
    const quint32 known = Words::process.load(std::memory_order_relaxed);
    return known != 0 ? known : Words::newProcess();
}

/// Of the calling process among those that were forked one from the other: 1 for the first, and one
/// more for each child. Tells what was inherited from what is one's own. Has 15 bits, and begins anew
/// behind the last.
inline quint16 generation()
{
    return Words::generation.load(std::memory_order_relaxed);
}

} // namespace Identity
