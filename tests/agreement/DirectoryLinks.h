#pragma once

#include <QFileInfo>
#include <QSet>

/// Which directories one walk enters.
///
/// A directory that is met without a link is entered; one that is reached through a link is entered
/// once, and not at all if the walk meets it without a link.
class DirectoryLinks
{
public:
    /// A walk that begins at @p top, which is entered whatever it is.
    explicit DirectoryLinks(const QFileInfo &top);

    /// Whether to enter @p directory. To be asked once for each way to it.
    bool enter(const QFileInfo &directory);

    /// The line in the log for whatever a walk leaves out because of what it is; the library words
    /// it in its own way.
    static const char *passedOver() { return "Passed over:"; }

private:
    void meetWithoutLink(const QFileInfo &directory);

    QSet<QString> m_metWithoutLink;
    QSet<QString> m_enteredThroughLinks;
    QString m_top;
};
