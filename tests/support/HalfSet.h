#pragma once

#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"

/// Takes the write lock, fills half of the buffer and dies. True if that came about.
inline bool dieInTheMiddleOfASet(const DoubleBuffer &buffer, unsigned char value)
{
    ChildProcess child([&buffer, value](const ChildSide &parent) {
        const auto handler = buffer.attach();
        unsigned char *const locked = handler->lockForWrite();
        CHILD_VERIFY(locked != nullptr);
        fillBuffer(locked, buffer.size() / 2, value);
        parent.say();
        parent.waitForWord();
        return 0;
    });
    return child.waitUntilReady() && buffer.semaphores.isWriteLocked() && child.kill();
}
