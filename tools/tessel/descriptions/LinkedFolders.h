#pragma once

#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

/// Tells which folders a walk over a folder passes over, as the library does: each is entered once, at
/// its own place if it has one below where the walk began or below where a link has led it.
class LinkedFolders
{
public:
    /// @p path is where the walk begins.
    explicit LinkedFolders(const QString &path);

    enum class Way {
        Entered,
        LeadsBack, ///< A link to a folder that was entered, and in which it lies itself.
        OtherPlace ///< A folder that is entered elsewhere, mostly a link to one.
    };
    /// To be asked once for each folder, in the order of the walk.
    Way wayOf(const QFileInfo &folder);

private:
    QString placeOf(const QFileInfo &folder);
    bool hasOwnPlace(const QString &target) const;

    // Canonical paths that end in a slash.
    /// Where the walk began, and where links brought it.
    QStringList m_beginnings;
    QSet<QString> m_entered;
    QHash<QString, QString> m_places; ///< of the paths of folders that were asked for
};
