#pragma once

#include "Validation/CheckedElement_p.h"

/// Which keys an element has, and what is written under them.
namespace KeyRules {

/// Of an element, or of a folder.json.
void check(const CheckedElement &element);
/// The keys of an object that describes a column, as a part of what was looked through already.
void checkColumn(CheckedFile &file, const JsonText::Value &column, const QString &url);

} // namespace KeyRules
