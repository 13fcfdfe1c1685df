#pragma once

#include <QString>

/// Files with what others must not know. Each throws a Refusal that names the file and the cure.
namespace SecretFile {

/// That it is there, can be read, and neither can be read by others nor written by others or a group.
void check(const QString &path);
/// The same, and its first line without the end of it.
QString firstLine(const QString &path);
/// The first line of a file that its owner alone may read or change, or the user of the unit that the service
/// manager gave it to.
QString firstLineForOwner(const QString &path);
/// That it is there and can be read, whoever else may.
void requireReadable(const QString &path);

} // namespace SecretFile
