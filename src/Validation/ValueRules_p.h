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
/// The limits of a column, of which each may be missing.
void checkColumnLimits(CheckedFile &file, const QString &url, const DescribedType &type,
                       const JsonText::Value &least, const JsonText::Value &most);

} // namespace ValueRules
