#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// The whole content of a file of /proc or /sys; nothing if it cannot be read.
std::optional<QByteArray> readTextFile(const QString &path);
/// The same without white space at both ends, as text.
std::optional<QString> readLine(const QString &path);
