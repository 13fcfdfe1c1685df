#include "commands/BuiltFolder.h"

#include "commands/Commands.h"
#include "descriptions/DirectoryBuild.h"

#include <QFileInfo>

void refusePrefixOfFile(const CommandLine &line, const QString &command)
{
    if (QFileInfo(line.positional(0)).isFile() && line.isSet(QStringLiteral("prefix"))) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("%1: --prefix goes with a folder, a file has its key; see "
                                     "'tessel %1 --help'")
                          .arg(command)};
    }
}

void buildIfFolder(const CommandLine &line, const QString &command)
{
    const QString keyPrefix = keyPrefixFrom(line);
    refusePrefixOfFile(line, command);
    if (!QFileInfo(line.positional(0)).isDir()) {
        return;
    }
    const DirectoryBuild build = buildFolder(DescriptionFolder(line.positional(0)), keyPrefix);
    if (build.failure) {
        throw Failure(*build.failure);
    }
}
