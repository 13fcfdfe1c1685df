#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/LayoutLeaf_p.h"

#include <QHash>

#include <algorithm>
#include <utility>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

std::size_t countLeaves(const ConfigurationAndProcessDataBase &node)
{
    std::size_t count = 0;
    for (const auto &child : node.getChildMap()) {
        if (!child.isNull()) {
            const bool isLeaf = dynamic_cast<const ProcessDataValue *>(child.data()) != nullptr;
            count += isLeaf ? 1 : countLeaves(*child);
        }
    }
    return count;
}

class Collection
{
public:
    explicit Collection(const ConfigurationAndProcessDataBase &root)
    {
        // A table that grows is there twice for a moment, which is much for a million leaves.
        m_leaves.reserve(countLeaves(root));
        addBelow(root, {});
    }

    std::vector<LayoutLeaf> take() { return std::move(m_leaves); }

private:
    void addBelow(const ConfigurationAndProcessDataBase &node, const QByteArray &prefix)
    {
        const auto &children = node.getChildMap();
        for (auto child = children.cbegin(); child != children.cend(); ++child) {
            // What a folder holds but cannot be parsed.
            if (child.value().isNull()) {
                continue;
            }
            const QByteArray url = prefix + child.key().toUtf8();
            if (const auto *leaf = dynamic_cast<const ProcessDataValue *>(child.value().data())) {
                m_leaves.push_back(leafOf(url, *leaf));
            } else {
                addBelow(*child.value(), url + '/');
            }
        }
    }

    LayoutLeaf leafOf(const QByteArray &url, const ProcessDataValue &element)
    {
        const auto number = [&element](const QString &key) {
            return element.getProperty(key).toUInt();
        };
        return {url,
                typeOf(element),
                number(Definitions::getKeyDataPropertyOffsetSharedMemory()),
                number(Definitions::getKeyDataPropertySizeValue()),
                number(Definitions::getKeyDataPropertyRelativeOffsetMetadata()),
                number(Definitions::getKeyDataPropertySizeMetadata()),
                number(Definitions::getKeyDataPropertyBitmask())};
    }

    /// Shared by the leaves of one type.
    QByteArray typeOf(const ProcessDataValue &element)
    {
        const QString type = element.getProperty(Definitions::getKeyDataPropertyType()).toString();
        QByteArray &text = m_types[type];
        if (text.isNull()) {
            text = type.toUtf8();
        }
        return text;
    }

    std::vector<LayoutLeaf> m_leaves;
    QHash<QString, QByteArray> m_types;
};

} // namespace

std::vector<LayoutLeaf> layoutLeavesOf(
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root)
{
    std::vector<LayoutLeaf> leaves;
    if (!root.isNull()) {
        leaves = Collection(*root).take();
    }
    std::sort(leaves.begin(), leaves.end(),
              [](const LayoutLeaf &left, const LayoutLeaf &right) { return left.url < right.url; });
    return leaves;
}
