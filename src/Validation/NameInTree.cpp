#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/DirectoryWalk_p.h"
#include "Validation/NameInTree_p.h"

QString nameInTree(const QFileInfo &entry, const QString &extension)
{
    if (!entry.isDir()) {
        return entry.fileName().endsWith(extension) ? DirectoryWalk::stemOf(entry) : QString();
    }
    using Access = ConfigurationDataAndProcessDescriptionAccess;
    return Access::containsFileOrDir(DirectoryWalk::entriesOf(entry), extension) ? entry.fileName()
                                                                                 : QString();
}
