#pragma once

#include <QFileInfo>
#include <QSet>

/// Which directories one walk enters.
///
/// Each is entered once. One that the walk comes to by going down alone, from its beginning or from
/// where a link brought it, has its place there and is not entered through another link.
class DirectoryLinks
{
public:
    /// A walk that begins at @p top, which is entered whatever it is.
    explicit DirectoryLinks(const QFileInfo &top);

    /// Whether to enter @p directory; logs where not. To be asked once for each way to it.
    bool enter(const QFileInfo &directory);

private:
    /// Whether the walk came through @p directory to where it is.
    bool leadsBack(const QFileInfo &directory) const;
    void placeBelow(const QFileInfo &directory);

    QSet<QString> m_places;
    QSet<QString> m_entered;
    QString m_top;
};
