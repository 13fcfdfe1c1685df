#pragma once

#include "Validation/CheckedElement_p.h"

/// Selection lists, and arrays as tables.
namespace TableRules {

void checkSelector(const CheckedElement &selector);
void checkArray(const CheckedElement &array);

} // namespace TableRules
