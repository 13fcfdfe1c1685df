#pragma once

#include "Validation/CheckedElement_p.h"

#include <QVariant>

/// Values and what bounds them.
namespace ValueRules {

/// What a leaf of a type holds of what is written.
struct Held
{
    bool isValid = false; ///< it can be converted
    bool isNoInput = false;
    QVariant value;
};

/// The limits of a leaf or a column; one that is missing, or that its type does not hold, does not count.
struct Limits
{
    JsonText::Value least;
    JsonText::Value most;
    Held leastHeld;
    Held mostHeld;
};

/// As the parser converts it.
Held held(const DescribedType &type, const JsonText::Value &written);

/// Whether the type holds it as it is written.
bool fits(const DescribedType &type, const JsonText::Value &written);

/// A leaf of a known type, but for arrays.
void check(const CheckedElement &leaf);
/// Reports @p written, called @p what, where the type @p name does not hold it as it is. False if it holds
/// another value or none.
bool checkHeld(CheckedFile &file, const QString &url, const QString &name,
               const DescribedType &type, const JsonText::Value &written, const QString &what);
/// Reports a lower limit above the upper one. False then.
bool checkOrder(CheckedFile &file, const QString &url, const DescribedType &type,
                const Limits &limits);
/// Reports a value or cell, which its type holds, outside of limits that are in order.
void checkWithin(CheckedFile &file, const QString &url, const DescribedType &type,
                 const JsonText::Value &written, const Limits &limits);

} // namespace ValueRules
