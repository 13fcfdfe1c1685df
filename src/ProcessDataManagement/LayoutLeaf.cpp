#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/LayoutLeaf_p.h"

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

LayoutLeaf leafOf(const QByteArray &url, const ProcessDataValue &element)
{
    const auto number = [&element](const QString &key) {
        return element.getProperty(key).toUInt();
    };
    return {url,
            element.getProperty(Definitions::getKeyDataPropertyType()).toString().toUtf8(),
            number(Definitions::getKeyDataPropertyOffsetSharedMemory()),
            number(Definitions::getKeyDataPropertySizeValue()),
            number(Definitions::getKeyDataPropertyRelativeOffsetMetadata()),
            number(Definitions::getKeyDataPropertySizeMetadata()),
            number(Definitions::getKeyDataPropertyBitmask())};
}

void collect(const ConfigurationAndProcessDataBase &node, const QByteArray &prefix,
             std::vector<LayoutLeaf> &leaves)
{
    const auto &children = node.getChildMap();
    for (auto child = children.cbegin(); child != children.cend(); ++child) {
        // What a folder holds but cannot be parsed.
        if (child.value().isNull()) {
            continue;
        }
        const QByteArray url = prefix + child.key().toUtf8();
        if (const auto *leaf = dynamic_cast<const ProcessDataValue *>(child.value().data())) {
            leaves.push_back(leafOf(url, *leaf));
        } else {
            collect(*child.value(), url + '/', leaves);
        }
    }
}

} // namespace

std::vector<LayoutLeaf> layoutLeavesOf(
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root)
{
    std::vector<LayoutLeaf> leaves;
    if (!root.isNull()) {
        collect(*root, {}, leaves);
    }
    std::sort(leaves.begin(), leaves.end(),
              [](const LayoutLeaf &left, const LayoutLeaf &right) { return left.url < right.url; });
    return leaves;
}
