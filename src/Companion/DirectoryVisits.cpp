#include "Companion/DirectoryVisits_p.h"

#include <QDebug>

#include <algorithm>

bool DirectoryVisits::enter(const QFileInfo &directory)
{
    const QString path = directory.canonicalFilePath();
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
