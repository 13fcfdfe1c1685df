#pragma once

#include "support/ChildProcess.h"
#include "torture/NamedRegion.h"
#include "torture/Stage.h"

#include <vector>

#include <sys/types.h>

namespace Torture {

/// What an actor can be asked to do with a region. 1 stands for success, 0 for a refusal.
enum class Act : quint32 {
    Create,
    Attach,
    Leave,
    LockRead,
    UnlockRead, ///< -1 if it has to be repeated
    LockWrite,
    Fill, ///< inside a write lock, with the number of the argument
    FillHalf,
    UnlockWrite,
    Swap,
    Read,   ///< the number of the set, 0 for the empty one; -1 refused, -2 repeat, -3 mixed
    Finish, ///< LockWrite, Fill, UnlockWrite
    /// As Finish, and tells what stood in the write buffer before: as Read.
    Rescue
};

/// A process that does what it is asked, one act after the other.
class Actor
{
public:
    /// What comes back instead of an answer that did not come.
    static constexpr qint64 sm_noAnswer = -1000;
    /// Long against the bounds of the locks.
    static constexpr qint64 sm_bound = 12 * second;

    /// The process takes @p user as its own if that is not 0.
    Actor(Stage &stage, int desk, const std::vector<const NamedRegion *> &regions, uid_t user = 0);

    qint64 ask(Act act, int region = 0, qint64 argument = 0);
    /// As ask(), in two parts.
    void begin(Act act, int region = 0, qint64 argument = 0);
    bool isAnswered() const { return m_child.hasSpoken(); }
    qint64 await(qint64 bound = sm_bound);
    /// Whether what it has begun waits for somebody. Comes back when it does, or is done.
    bool isWaiting() const;
    /// Known once it has answered something.
    pid_t process() const { return m_desk.process; }
    bool kill() { return m_child.kill(); }

private:
    Desk &m_desk;
    ChildProcess m_child;
};

} // namespace Torture
