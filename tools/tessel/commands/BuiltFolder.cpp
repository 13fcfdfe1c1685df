#include "commands/BuiltFolder.h"

#include "commands/Commands.h"
#include "descriptions/DirectoryBuild.h"

#include <QFileInfo>

void buildIfFolder(const CommandLine &line, const QString &command)
{
    const QString keyPrefix = keyPrefixFrom(line);
    const QFileInfo file(line.positional(0));
    if (file.isFile() && line.isSet(QStringLiteral("prefix"))) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("%1: --prefix goes with a folder, a file has its key; see "
                                     "'tessel %1 --help'")
                          .arg(command)};
    }
    if (!file.isDir()) {
        return;
    }
    const DirectoryBuild build = buildFolder(DescriptionFolder(line.positional(0)), keyPrefix);
    if (build.failure) {
        throw Failure(*build.failure);
    }
}
