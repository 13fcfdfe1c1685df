#pragma once

#include "Companion/TesselExport.h"

#include <QFileInfo>
#include <QList>
#include <QString>
#include <QStringList>

/// Appends to @p files every file at or below @p path whose name matches a wildcard pattern.
///
/// The order is the same on every run and every file system: the entries of one directory, files
/// and directories alike, by name, by code point, and what lies below a directory at the place of
/// that directory. Names match case-sensitively and hidden entries are passed over, as is what is
/// neither a file nor a directory. A link to a file counts as a file. A link to a directory is
/// followed, each real directory once: at its own place if it has one below @p path, or below what a
/// link has led to before, else under the name by which it is met first. Another way to it is passed
/// over with a warning. A missing directory and an empty path append nothing, and neither does a
/// search without patterns.
TESSEL_EXPORT void searchFilesOnPathRecursive(const QString &path, const QStringList &patterns,
                                              QList<QFileInfo> &files);
