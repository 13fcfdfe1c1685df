#pragma once

#include "Validation/CheckedElement_p.h"

/// What a process description says of the slot of one leaf. Offsets and sizes in bytes.
struct ProcessSlot
{
    explicit ProcessSlot(const CheckedElement &leaf);

    bool isBit() const { return type.isBit; }
    bool hasMetadata() const { return sizeMetadata != 0; }
    /// Of a bit only the one byte is touched, whatever its size.
    quint64 valueEnd() const { return quint64(offset) + (isBit() ? 1 : size); }
    quint64 stateBegin() const { return quint64(offset) + distance; }
    quint64 stateEnd() const { return stateBegin() + sm_stateSize; }

    /// Where a leaf that is bound takes the slot to end: by the size of its metadata alone, in 32 bits.
    quint32 countedEnd() const { return offset + sizeMetadata; }

    /// Bytes of an error state, whatever sizeMetadata says.
    static constexpr quint32 sm_stateSize = 4;

    QString url;
    DescribedType type;
    quint32 offset;
    quint32 size;
    quint32 distance;
    quint32 sizeMetadata;
    quint32 mask;
    /// Where problems with offset, distance and metadata stand: the element where the key is missing.
    JsonText::Value offsetAt;
    JsonText::Value distanceAt;
    JsonText::Value sizeMetadataAt;
    JsonText::Value maskAt;
};
