#include "Companion/DirectoryVisits_p.h"

#include <QDebug>

#include <algorithm>

bool DirectoryVisits::enter(const QFileInfo &directory)
{
    const QString path = canonicalPathOf(directory);
    if (path.isEmpty() || m_visited.contains(path)) {
        return false;
    }
    const bool isBeginning = m_path.isEmpty() || directory.isSymLink();
    if (isBeginning && hasOwnPlace(path)) {
        return false;
    }
    if (isBeginning) {
        m_beginnings.insert(path);
    }
    m_visited.insert(path);
    m_path.append(path);
    return true;
}

void DirectoryVisits::leave()
{
    m_path.removeLast();
}

void DirectoryVisits::tellPassedOver(const QFileInfo &directory) const
{
    const QString path = directory.canonicalFilePath();
    if (m_path.contains(path)) {
        qWarning() << "Directory leads back to itself and is passed over:" << directory.filePath();
    } else if (!path.isEmpty()) {
        qWarning() << "Directory has another place in the tree and is passed over:"
                   << directory.filePath();
    }
}

/// The system follows a path from its beginning and looks for a link at every name, each of them again from the
/// beginning: a walk that asked it in each directory would take the third power of the depth.
QString DirectoryVisits::canonicalPathOf(const QFileInfo &directory) const
{
    if (m_path.isEmpty() || directory.isSymLink() || !directory.exists()) {
        return directory.canonicalFilePath();
    }
    const QString &above = m_path.constLast();
    return (above.endsWith(QLatin1Char('/')) ? above : above + QLatin1Char('/'))
           + directory.fileName();
}

/// Whether the walk comes to @p canonicalPath by going down alone. Hidden directories are not
/// entered, and what cannot be listed shows nothing below it.
bool DirectoryVisits::hasOwnPlace(const QString &canonicalPath) const
{
    QString path = canonicalPath;
    while (path.size() > 1) {
        const int slash = path.lastIndexOf(QLatin1Char('/'));
        if (path.midRef(slash + 1).startsWith(QLatin1Char('.'))) {
            return false;
        }
        path.truncate(std::max(slash, 1));
        if (!QFileInfo(path).isReadable()) {
            return false;
        }
        if (m_beginnings.contains(path)) {
            return true;
        }
    }
    return false;
}
