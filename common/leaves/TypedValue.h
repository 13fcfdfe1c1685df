#pragma once

#include "leaves/WritableSlot.h"

/// What somebody's text means as a value of a type.
struct TypedValue
{
    QVariant value;  ///< of the type
    QString problem; ///< not empty: it means none there

    /// Whole numbers also as 0x10, and true, false, 1 and 0 for a boolean. @p errorState says how one is written
    /// instead of a number that is none, such as "with --error"; empty: not told.
    static TypedValue fromText(const WritableSlot &slot, const QString &text,
                               const QString &errorState);
    /// The same of a number as JSON has it, where 5.0 and 5e0 are the whole number 5. Its digits decide: none of
    /// them is rounded away, however many there are.
    static TypedValue fromJsonNumber(const WritableSlot &slot, const QString &text,
                                     const QString &errorState);
};
