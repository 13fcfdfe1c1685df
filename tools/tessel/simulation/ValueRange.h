#pragma once

#include "values/LeafSlot.h"

#include <QString>
#include <QVariant>

#include <optional>

/// Between which numbers the values of a leaf stay when they are made up: its view range within its limits,
/// or its limits, or else a hundred of what its type holds.
struct ValueRange
{
    // Of one type: LongLong, ULongLong or Double.
    QVariant least;
    QVariant most;

    QString leastText() const;
    QString mostText() const;
    /// The number that lies at @p fraction, 0 to 1, of the way from the least to the most.
    QVariant at(double fraction) const;
};

/// None of a boolean, of a text, and of a type that has no slot. A limit that leaves
/// nothing of the type counts as none, and so do two that exclude each other.
std::optional<ValueRange> rangeOf(const Leaf &leaf);
