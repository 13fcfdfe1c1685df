#pragma once

#include "values/LeafSlot.h"

#include <QString>

/// Which slots of a region cross a cache line.
///
/// Where the mapped memory begins, a page and a cache line do. The first of two buffers begins at a line as
/// well, behind the management block; the second one begins wherever the first ends, so that the same slot
/// may cross a line in one of them alone.
class CacheLines
{
public:
    /// Bytes of a line.
    static constexpr quint64 sm_size = 64;

    struct Crossing
    {
        bool inFirst = false;
        /// Always false of a single buffer.
        bool inSecond = false;

        bool isAny() const { return inFirst || inSecond; }
    };

    CacheLines(bool isDoubleBuffered, quint32 bufferSize);

    /// Of a number. Texts and single bits are not accessed as a whole, or lie in one byte.
    Crossing ofValue(const LeafSlot &slot) const;
    /// Of the error state, if the slot has one.
    Crossing ofState(const LeafSlot &slot) const;
    /// "crosses a cache line in the second buffer"; empty if it crosses none.
    QString text(Crossing crossing) const;

    /// How many bytes behind a line of the first buffer one of the second begins.
    quint64 shiftOfSecond() const { return (sm_size - m_secondBegin % sm_size) % sm_size; }

private:
    Crossing ofBytes(quint64 offset, quint64 count) const;

    bool m_isDoubleBuffered;
    // In the region.
    quint64 m_firstBegin;
    quint64 m_secondBegin;
};
