#pragma once

#include "Validation/CheckedElement_p.h"

/// What an element is, and how it stands among others.
namespace ElementRules {

/// False if the parser refuses it for its type or its children.
bool checkType(const CheckedElement &element);
/// Of a child that stands under @p key.
void checkName(const CheckedElement &parent, const JsonText::Value &key, const QString &url);
/// The display positions of all children of @p node.
void checkPositions(const CheckedElement &node);
/// Root of a configuration.
void checkStamp(const CheckedElement &root);

} // namespace ElementRules
