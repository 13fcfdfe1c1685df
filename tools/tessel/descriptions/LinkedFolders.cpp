#include "descriptions/LinkedFolders.h"

#include <algorithm>

namespace {

QString canonicalPath(const QFileInfo &folder)
{
    const QString path = folder.canonicalFilePath();
    return path.endsWith(QLatin1Char('/')) ? path : path + QLatin1Char('/');
}

} // namespace

LinkedFolders::LinkedFolders(const QString &path)
    : m_beginnings(canonicalPath(QFileInfo(path)))
    , m_entered{m_beginnings.first()}
    , m_places{{path, m_beginnings.first()}}
{
}

/// The system looks for a link at every name of a path; of the folder above the answer is known.
QString LinkedFolders::placeOf(const QFileInfo &folder)
{
    const QString above = m_places.value(folder.path());
    const QString place = above.isEmpty() || folder.isSymLink() || !folder.exists()
                              ? canonicalPath(folder)
                              : above + folder.fileName() + QLatin1Char('/');
    m_places.insert(folder.filePath(), place);
    return place;
}

LinkedFolders::Way LinkedFolders::wayOf(const QFileInfo &folder)
{
    const QString target = placeOf(folder);
    if (m_entered.contains(target)) {
        const QString place = canonicalPath(QFileInfo(folder.path()));
        return place.startsWith(target) ? Way::LeadsBack : Way::OtherPlace;
    }
    if (folder.isSymLink()) {
        if (hasOwnPlace(target)) {
            return Way::OtherPlace;
        }
        m_beginnings.append(target);
    }
    m_entered.insert(target);
    return Way::Entered;
}

/// Whether the walk comes to @p target by going down alone. Hidden folders are not entered.
bool LinkedFolders::hasOwnPlace(const QString &target) const
{
    return std::any_of(m_beginnings.cbegin(), m_beginnings.cend(), [&target](const QString &begin) {
        return target.startsWith(begin)
               && !target.midRef(begin.size() - 1).contains(QLatin1String("/."));
    });
}
