#include "SequenceLock.h"

PlainSlot::Value readBySequence(const SequenceLock *lock)
{
    return readInPlace(lock);
}
