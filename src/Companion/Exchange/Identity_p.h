#pragma once

#include <QtGlobal>

/// Who is asking, at the price of a load instead of a system call. Right in forked children too.
namespace Identity {

/// Of the calling thread. Never comes back, neither in this process nor in one that was forked from
/// it: what the parent's thread held is not held by the thread that goes on in the child.
quint64 threadNumber();
/// The process id.
quint32 processId();
/// Of the calling process among those that were forked one from the other: 1 for the first that asks,
/// and one more for each child. Tells what was inherited from what is one's own. Has 15 bits, and
/// begins anew behind the last.
quint16 generation();

} // namespace Identity
