#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/DirectoryWalk_p.h"

#include <algorithm>

QList<QFileInfo> DirectoryWalk::entriesOf(const QFileInfo &directory)
{
    QList<QFileInfo> entries =
        ConfigurationDataAndProcessDescriptionAccess::generateDirectoryInfoList(
            QDir(directory.filePath()));
    // The listing leaves out FIFOs and devices themselves, but not the links to them.
    const auto isSomethingElse = [](const QFileInfo &entry) {
        return entry.isSymLink() && !entry.isDir() && !entry.isFile();
    };
    entries.erase(std::remove_if(entries.begin(), entries.end(), isSomethingElse), entries.end());
    return entries;
}
