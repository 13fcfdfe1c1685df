#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QString>

/// What stands at a path: a file, or a folder of files, of one of the two kinds.
enum class FileKind { ProcessDescription, Configuration };

/// The tree of what is at @p path, read from the disk. Throws a Refusal that names the path, the reason and what to
/// do.
ConfigurationAndProcessDataBase::BaseClassSharedPointer parsedFiles(const QString &path,
                                                                    FileKind kind);
