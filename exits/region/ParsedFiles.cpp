#include "region/ParsedFiles.h"

#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QFileInfo>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

void requireReadable(const QString &path, FileKind kind)
{
    const QFileInfo entry(path);
    if (!entry.exists()) {
        throw Refusal{ExitCode::NotFound,
                      kind == FileKind::Configuration
                          ? QStringLiteral("%1: no such configuration").arg(path)
                          : QStringLiteral("%1: no such description file or folder").arg(path)};
    }
    if (!entry.isReadable()) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: no permission to read it; give the user of this program "
                                     "a group that may")
                          .arg(path)};
    }
}

Root parsedFolder(const QString &path, FileKind kind)
{
    // A path such as "." does not show the name of the folder.
    const QFileInfo folder(QFileInfo(path).canonicalFilePath());
    Root root;
    const bool isParsed = kind == FileKind::Configuration ? Access::parseConfigDir(root, folder)
                                                          : Access::parseProcessDir(root, folder);
    return isParsed ? root : Root();
}

} // namespace

Root parsedFiles(const QString &path, FileKind kind)
{
    requireReadable(path, kind);
    const LibraryReasons reasons;
    const Root root = QFileInfo(path).isDir()
                          ? parsedFolder(path, kind)
                          : ConfigurationAndProcessDataParser().parseFromFile(path);
    if (!root) {
        throw Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: cannot be parsed: %2; 'tessel validate' shows where")
                          .arg(path, reasons.text())};
    }
    return root;
}
