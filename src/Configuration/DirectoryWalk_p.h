#pragma once

#include <QByteArray>
#include <QFileInfo>
#include <QString>
#include <QStringList>

#include <optional>

/// What the walks over instance directories have in common, in both directions.
namespace DirectoryWalk {

/// Canonical paths from the top of a walk to where it is.
using Ancestors = QStringList;

/// The name under which the tree holds a file: the text before the first dot of its name.
inline QString stemOf(const QFileInfo &file)
{
    return file.fileName().section(QLatin1Char('.'), 0, 0);
}

/// The ancestors of what lies in @p directory. Nothing, with a warning, if it is its own ancestor:
/// a link in it leads back up, and the walk would never end.
std::optional<Ancestors> descend(const Ancestors &ancestors, const QFileInfo &directory);

/// Text up to the end of the data or its first NUL byte.
inline QString decodeToFirstNul(const QByteArray &data)
{
    return data.isNull() ? QString() : QString::fromUtf8(data.constData());
}

} // namespace DirectoryWalk
