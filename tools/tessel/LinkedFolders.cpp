#include "LinkedFolders.h"

LinkedFolders::LinkedFolders(const QString &path)
    : m_top(QFileInfo(path).canonicalFilePath() + QLatin1Char('/'))
{
}

LinkedFolders::Way LinkedFolders::wayOf(const QFileInfo &folder)
{
    if (!folder.isSymLink()) {
        return Way::Entered;
    }
    const QString target = folder.canonicalFilePath() + QLatin1Char('/');
    const QString place = QFileInfo(folder.path()).canonicalFilePath() + QLatin1Char('/');
    const bool isBelowTop = target.startsWith(m_top);
    if (isBelowTop && place.startsWith(target)) {
        return Way::LeadsBack;
    }
    // Hidden folders are not searched, and have no place of their own.
    if (isBelowTop && !target.midRef(m_top.size() - 1).contains(QLatin1String("/."))) {
        return Way::OtherPlace;
    }
    const bool isKnown = m_targets.contains(target);
    m_targets.insert(target);
    return isKnown ? Way::OtherPlace : Way::Entered;
}
