#pragma once

#include <QString>

/// Names that a header cannot give away, since they mean something in C++, in Qt or on the system.
namespace CppTakenNames {

/// Whether it would not be a name anywhere: a word of C++, what is or may be a macro, a class of Qt.
bool isWordOrMacro(const QString &name);

/// Whether something outside of any namespace may be called so already: no namespace can be then.
bool isGlobal(const QString &name);

} // namespace CppTakenNames
