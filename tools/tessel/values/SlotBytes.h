#pragma once

#include "ProcessData/ProcessValue.h"
#include "values/LeafSlot.h"

#include <QByteArray>
#include <QString>

/// A copy of what lies in the slot of a leaf, in one buffer.
struct SlotBytes
{
    QByteArray value; ///< empty if it could not be had
    QByteArray state; ///< empty for a slot without metadata

    /// What the library reads there, with the number or text that stands beside an error state. Its
    /// content is invalid where the bytes are not those of a value.
    ProcessValue decoded(const LeafSlot &slot) const;
    /// Whether no bit of it is set, as in memory that nobody has written.
    bool isZero() const;
};

/// "0000803f 00000000", value and error state; a long value is cut after 16 bytes.
QString hexText(const SlotBytes &bytes);
