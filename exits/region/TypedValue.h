#pragma once

#include "region/FollowedLeaf.h"

#include <QString>
#include <QVariant>

/// What a text means as a value of a leaf, by the rules of `tessel set`: whole numbers also as 0x10, and
/// true, false, 1 and 0 for a boolean.
struct TypedValue
{
    QVariant value;  ///< of the type of the leaf
    QString problem; ///< not empty: it means none there

    /// The leaf has to have an element.
    static TypedValue fromText(const FollowedLeaf &leaf, const QString &text);
    /// The same of a number as JSON has it, where 5.0 and 5e0 are the whole number 5. Its digits decide: none of
    /// them is rounded away, however many there are.
    static TypedValue fromJsonNumber(const FollowedLeaf &leaf, const QString &text);
};
