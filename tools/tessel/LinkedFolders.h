#pragma once

#include <QFileInfo>
#include <QSet>
#include <QString>

/// Tells which links to folders a walk over a folder passes over, as the library does: each folder is
/// entered once, at its own place if it has one.
class LinkedFolders
{
public:
    /// @p path is where the walk begins.
    explicit LinkedFolders(const QString &path);

    enum class Way {
        Entered,
        LeadsBack, ///< A link to a folder in which it lies itself.
        OtherPlace ///< A link to a folder that is entered elsewhere.
    };
    /// To be asked once for each folder, in the order of the walk.
    Way wayOf(const QFileInfo &folder);

private:
    QString m_top;
    QSet<QString> m_targets;
};
