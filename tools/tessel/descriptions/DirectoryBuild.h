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
    /// Of a plan: whether the build itself would make another one, which nobody knows yet.
    bool isKeyNew = false;
    /// Of a plan: why the folder would be refused all the same when it is built.
    std::optional<Failure> remaining;
    /// Why the folder is not what a build makes of it; the files may have been rewritten in part.
    std::optional<Failure> failure;
};

/// Runs the build. A file that holds a cut-off text afterwards gets back its former one.
DirectoryBuild buildFolder(const DescriptionFolder &folder, const QString &keyPrefix);

/// The tree of a folder as a build leaves it.
struct LaidOutFolder
{
    /// With the facts of the memory at its top; the key is the one that the files have.
    ConfigurationAndProcessDataBase::BaseClassSharedPointer root;
    /// Whether the files have these offsets and this size already.
    bool isBuilt = true;
};

/// Lays the folder out without writing anything. Throws a Failure if that cannot be done.
LaidOutFolder layOutFolder(const DescriptionFolder &folder);

/// Finds out what a build would do, without writing anything.
DirectoryBuild planFolder(const DescriptionFolder &folder, const QString &keyPrefix);
