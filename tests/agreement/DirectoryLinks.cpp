#include "agreement/DirectoryLinks.h"

#include "agreement/PlainDirectories.h"

#include <QDebug>

DirectoryLinks::DirectoryLinks(const QFileInfo &top) : m_top(QDir::cleanPath(top.filePath()))
{
    placeBelow(top);
}

bool DirectoryLinks::enter(const QFileInfo &directory)
{
    const QString canonicalPath = directory.canonicalFilePath();
    const bool hasOtherPlace = directory.isSymLink() && m_places.contains(canonicalPath);
    if (hasOtherPlace || m_entered.contains(canonicalPath)) {
        qWarning() << (leadsBack(directory)
                           ? "Directory leads back to itself and is passed over:"
                           : "Directory has another place in the tree and is passed over:")
                   << directory.filePath();
        return false;
    }
    m_entered.insert(canonicalPath);
    if (directory.isSymLink()) {
        placeBelow(directory);
    }
    return true;
}

bool DirectoryLinks::leadsBack(const QFileInfo &directory) const
{
    const QString canonicalPath = directory.canonicalFilePath();
    QString above = QDir::cleanPath(directory.path());
    while (above.size() >= m_top.size()) {
        if (QFileInfo(above).canonicalFilePath() == canonicalPath) {
            return true;
        }
        above.truncate(above.lastIndexOf('/'));
    }
    return false;
}

void DirectoryLinks::placeBelow(const QFileInfo &directory)
{
    const auto entries = PlainDirectories::generateDirectoryInfoList(QDir(directory.filePath()));
    for (const QFileInfo &entry : entries) {
        if (entry.isDir() && !entry.isSymLink()) {
            m_places.insert(entry.canonicalFilePath());
            placeBelow(entry);
        }
    }
}
