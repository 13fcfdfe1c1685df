#include "Configuration/DirectoryWalk_p.h"

#include <QDebug>

std::optional<DirectoryWalk::Ancestors> DirectoryWalk::descend(const Ancestors &ancestors,
                                                               const QFileInfo &directory)
{
    const QString path = directory.canonicalFilePath();
    if (ancestors.contains(path)) {
        qWarning() << "Directory leads back to itself and is passed over:" << directory.filePath();
        return std::nullopt;
    }
    return ancestors + QStringList(path);
}
