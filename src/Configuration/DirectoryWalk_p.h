#pragma once

#include <QByteArray>
#include <QFileInfo>
#include <QList>
#include <QString>

/// What the walks over instance directories have in common, in both directions.
namespace DirectoryWalk {

/// The name under which the tree holds a file: the text before the first dot of its name.
inline QString stemOf(const QFileInfo &file)
{
    return file.fileName().section(QLatin1Char('.'), 0, 0);
}

/// The files and directories in @p directory, in the order of the walks. Links to anything else are
/// no entries.
QList<QFileInfo> entriesOf(const QFileInfo &directory);

/// Text up to the end of the data or its first NUL byte.
inline QString decodeToFirstNul(const QByteArray &data)
{
    return data.isNull() ? QString() : QString::fromUtf8(data.constData());
}

} // namespace DirectoryWalk
