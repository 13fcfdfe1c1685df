#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <vector>

/// The URL without the slashes that do not count.
QString plainUrl(const QString &url);

/// A node or leaf of a tree of URLs.
struct UrlNode
{
    QString url;
    int parent = -1; ///< -1 for the root alone
    int row = 0;     ///< among the children of its parent
    int leaf = -1;   ///< index of the URL that led to it; -1: an inner node
    std::vector<int> children;
};

/// The tree that URLs make; the root, which has no URL, is node 0. Nodes are addressed by their index, which
/// fits into the internal identifier of a model's index.
class UrlTree
{
public:
    UrlTree() : UrlTree(QStringList()) { }
    /// Children stand in the order in which the URLs lead to them.
    explicit UrlTree(const QStringList &urls);

    const UrlNode &node(int index) const { return m_nodes[static_cast<std::size_t>(index)]; }
    /// With whatever slashes that do not count; -1 if there is none.
    int find(const QString &url) const
    {
        return m_nodeAt.value(url, m_nodeAt.value(plainUrl(url), -1));
    }
    int nodeOfLeaf(int leaf) const { return m_nodeOfLeaf[static_cast<std::size_t>(leaf)]; }

private:
    int nodeAt(const QString &url);

    std::vector<UrlNode> m_nodes;
    QHash<QString, int> m_nodeAt;
    std::vector<int> m_nodeOfLeaf;
};
