#pragma once

#include "PlainSlot.h"

#include <atomic>

/// The least that a consistent read without a lock can be: 12 bytes between two looks at a counter.
struct SequenceLock
{
    std::atomic<quint32> sequence;
    unsigned char slot[PlainSlot::size];
};

/// Expanded where it is used.
inline PlainSlot::Value readInPlace(const SequenceLock *lock)
{
    PlainSlot::Value value{};
    quint32 before = 0;
    quint32 after = 0;
    do {
        before = lock->sequence.load(std::memory_order_acquire);
        value = PlainSlot::load(lock->slot);
        std::atomic_thread_fence(std::memory_order_acquire);
        after = lock->sequence.load(std::memory_order_relaxed);
    } while (before != after || (before & 1U) != 0);
    return value;
}

/// The same as a function of a program's own room for its values: called, and giving both back in
/// registers.
PlainSlot::Value readBySequence(const SequenceLock *lock);
