#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

/// Names of C++ for the names of a description, the same in every run.
namespace CppNames {

/// ASCII letters and digits stay. Another ASCII character becomes `_`, any other one `u` and its number in
/// hexadecimal; of several `_` one stays, and none in front or at the end. A digit in front gets an `n`, what is
/// empty becomes `x`. A word of C++, a macro, and what may be one because it has no small letter, gets a `_` behind it.
QString identifierOf(const QString &name);

/// An identifier for each of @p names, of which none is twice or in @p taken. A name that is an identifier keeps it;
/// others of the same one get `_2`, `_3` and so on, in the order of the names.
QHash<QString, QString> uniqueIdentifiers(const QStringList &names, const QSet<QString> &taken);

/// The same for a namespace, which gets a `_` behind it also if something outside of any namespace is called so.
QString namespaceOf(const QString &name);

/// Whether it can be the name of a namespace, such as `plant` or `plant::tank`.
bool isNamespace(const QString &text);

} // namespace CppNames
