#pragma once

#include <QString>
#include <QStringList>

/// A URL as the command line takes it, in which a `*` stands for any characters of one piece, and a
/// piece that is `**` for any number of pieces, none included.
class UrlPattern
{
public:
    explicit UrlPattern(const QString &url);

    /// Whether a URL of the tree lies at or below what the pattern names. No pattern names the root.
    bool leadsTo(const QString &url) const;
    /// False only if leadsTo() is false for whatever lies below the node at @p url.
    bool mayLeadInto(const QString &url) const;

private:
    QStringList m_pieces;
};
