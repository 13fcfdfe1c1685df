#include "agreement/DirectoryLinks.h"

#include "agreement/PlainDirectories.h"

DirectoryLinks::DirectoryLinks(const QFileInfo &top) : m_top(top.filePath())
{
    meetWithoutLink(top);
}

bool DirectoryLinks::enter(const QFileInfo &directory)
{
    const QStringList pieces =
        directory.filePath().mid(m_top.size()).split('/', Qt::SkipEmptyParts);
    bool isReachedThroughLink = false;
    QString path = m_top;
    for (const QString &piece : pieces) {
        path += '/' + piece;
        isReachedThroughLink = isReachedThroughLink || QFileInfo(path).isSymLink();
    }
    const QString canonicalPath = directory.canonicalFilePath();
    if (!isReachedThroughLink) {
        return true;
    }
    if (m_metWithoutLink.contains(canonicalPath) || m_enteredThroughLinks.contains(canonicalPath)) {
        return false;
    }
    m_enteredThroughLinks.insert(canonicalPath);
    return true;
}

void DirectoryLinks::meetWithoutLink(const QFileInfo &directory)
{
    m_metWithoutLink.insert(directory.canonicalFilePath());
    const auto entries = PlainDirectories::generateDirectoryInfoList(QDir(directory.filePath()));
    for (const QFileInfo &entry : entries) {
        if (entry.isDir() && !entry.isSymLink()) {
            meetWithoutLink(entry);
        }
    }
}
