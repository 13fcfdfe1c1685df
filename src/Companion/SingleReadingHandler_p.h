#pragma once

#include "Companion/SingleBufferHandler.h"

#include <QString>

/// A single buffer in a mapping that cannot be written.
///
/// Takes its place among the readers in the semaphores that are there, and makes none. While there are
/// none nobody can be writing, and reading goes on without a lock; a read during which somebody has made
/// them is to be repeated.
class SingleReadingHandler : public SingleBufferHandler
{
public:
    /// The memory is there: nobody makes one of these without.
    SingleReadingHandler(unsigned char *buffer, unsigned int size, const QString &semaphoreKey);

    /// Whether there are semaphores that this process may not use: no read would be reliable. The log
    /// says why.
    bool isRefused() const;

    BufferPointer lockForRead() override;
    bool unlockForRead(BufferPointer buffer, bool &repeat) override;
    // All of these are refused, with a warning.
    BufferPointer lockForWrite() override;
    bool unlockForWrite(BufferPointer buffer) override;
    BufferPointer writeBufferPointer() override;
    bool swapBuffers() override;

private:
    const QString m_semaphoreKey;
};
