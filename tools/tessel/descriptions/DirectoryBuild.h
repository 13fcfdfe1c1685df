#pragma once

#include "descriptions/DescriptionFolder.h"
#include "text/Failure.h"

#include <optional>

/// What a directory build makes of a folder.
struct DirectoryBuild
{
    /// Absolute paths of the files that were rewritten, or would be.
    QStringList rewritten;
    /// Bytes of one buffer.
    int bufferSize = 0;
    bool isDoubleBuffered = false;
    QString key;
    /// Why the folder is not what a build makes of it; the files may have been rewritten in part.
    std::optional<Failure> failure;
};

/// Runs the build. A file that holds a cut-off text afterwards gets back its former one.
DirectoryBuild buildFolder(const DescriptionFolder &folder, const QString &keyPrefix);

/// Finds out what a build would do, without writing anything.
DirectoryBuild planFolder(const DescriptionFolder &folder, const QString &keyPrefix);
