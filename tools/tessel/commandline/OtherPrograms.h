#pragma once

#include <QString>
#include <QStringList>

/// Programs beside the tool that it runs as subcommands: an executable called tessel-NAME on the path
/// is `tessel NAME`.
namespace OtherPrograms {

/// The names of those that are installed, in alphabetical order, each once.
QStringList names();

/// Becomes the program, with the arguments that stand behind its name. Returns if there is none.
/// A Failure if it cannot be run.
void runIfThere(const QString &name, const QStringList &arguments);

} // namespace OtherPrograms
