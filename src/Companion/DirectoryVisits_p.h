#pragma once

#include <QFileInfo>
#include <QSet>
#include <QString>
#include <QStringList>

/// Which directories one walk over the disk enters, where links lead from one to another.
///
/// Each directory is entered once, by its canonical path. One that the walk comes to without a link,
/// counted from where it began or from where a link has brought it so far, is entered there and not
/// through a link, whichever stands first: its place does not change with the name of a link. Of links
/// that lead out of the walk, to a directory and to one above it, the first one counts. So directories
/// that link to each other cost no more than their number, and a loop ends.
class DirectoryVisits
{
public:
    /// Whether the walk goes into @p directory, which lies in the one that it is in, unless it begins here. If
    /// so, leave() belongs to it. False for one that does not exist.
    bool enter(const QFileInfo &directory);
    /// Ends the last visit that has not ended yet.
    void leave();

    /// Warns of a directory that was not entered although it exists.
    void tellPassedOver(const QFileInfo &directory) const;

private:
    QString canonicalPathOf(const QFileInfo &directory) const;
    bool hasOwnPlace(const QString &canonicalPath) const;

    /// Where the walk began, and where links brought it.
    QSet<QString> m_beginnings;
    QSet<QString> m_visited;
    /// From the beginning of the walk to where it is.
    QStringList m_path;
};
