#include "TesselModels/UrlTree_p.h"

QString plainUrl(const QString &url)
{
    return url.split(QLatin1Char('/'), Qt::SkipEmptyParts).join(QLatin1Char('/'));
}

UrlTree::UrlTree(const QStringList &urls) : m_nodes(1)
{
    m_nodeAt.insert(QString(), 0);
    m_nodeOfLeaf.reserve(static_cast<std::size_t>(urls.size()));
    for (const auto &url : urls) {
        const int node = nodeAt(url);
        m_nodes[static_cast<std::size_t>(node)].leaf = static_cast<int>(m_nodeOfLeaf.size());
        m_nodeOfLeaf.push_back(node);
    }
}

int UrlTree::nodeAt(const QString &url)
{
    const auto known = m_nodeAt.constFind(url);
    if (known != m_nodeAt.cend()) {
        return known.value();
    }
    const int slash = url.lastIndexOf(QLatin1Char('/'));
    const int parent = nodeAt(slash > 0 ? url.left(slash) : QString());
    const int made = static_cast<int>(m_nodes.size());
    auto &siblings = m_nodes[static_cast<std::size_t>(parent)].children;
    UrlNode node;
    node.url = url;
    node.parent = parent;
    node.row = static_cast<int>(siblings.size());
    siblings.push_back(made);
    m_nodes.push_back(node);
    m_nodeAt.insert(url, made);
    return made;
}
