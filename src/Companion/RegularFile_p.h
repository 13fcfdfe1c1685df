#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

/// Descriptions are regular files, under their own name or through links.
///
/// Whoever opens a FIFO waits until somebody writes to it, a device may have no end, and some begin
/// to work when they are opened. A name tells nothing of this.
namespace RegularFile {

/// Opens the file at @p path to be read as text and waits for nobody, but for the holder of a lease on
/// it as long as the system gives him. False with a warning, which has the reason, if it cannot be
/// opened or is something else. @p file does not know its name.
bool openForReading(const QString &path, QFile &file);

/// All of a file that was opened so, without the `\r` in it, as QFile::readAll() gives it. Nothing else
/// was or is read of it.
QByteArray readText(QFile &file);

/// Whether something is there under @p path that is neither a file nor a directory.
bool isSomethingElse(const QString &path);

} // namespace RegularFile
