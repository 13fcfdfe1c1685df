#include "web/DescriptionJson.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "web/JsonText.h"

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

/// A whole number in the description of a floating-point value is one of those, too.
QByteArray limitJson(const FollowedLeaf &leaf, const std::optional<QVariant> &limit)
{
    QVariant number = limit.value_or(QVariant());
    const bool isNumber = number.convert(
        Definitions::getBasicDataTypeMapForProcessData().value(leaf.type, QMetaType::UnknownType));
    return isNumber ? JsonText::numberForBrowser(number) : "null";
}

QByteArray leafJson(int index, const FollowedLeaf &leaf)
{
    JsonText::Members members{{"index", QByteArray::number(index)},
                              {"url", JsonText::text(leaf.url)},
                              {"type", JsonText::text(leaf.type)},
                              {"unit", JsonText::text(leaf.unit)},
                              {"label", JsonText::text(leaf.label)},
                              {"min", limitJson(leaf, leaf.minLimit)},
                              {"max", limitJson(leaf, leaf.maxLimit)},
                              {"viewMin", limitJson(leaf, leaf.viewStart)},
                              {"viewMax", limitJson(leaf, leaf.viewEnd)},
                              {"readOnly", JsonText::boolean(leaf.isReadOnly)}};
    if (!leaf.entries.isEmpty()) {
        QVector<QByteArray> entries;
        for (const auto &entry : leaf.entries) {
            entries.append(JsonText::text(entry));
        }
        members.append({"entries", JsonText::array(entries)});
    }
    return JsonText::object(members);
}

} // namespace

QByteArray leavesAsJson(const QVector<FollowedLeaf> &leaves)
{
    QVector<QByteArray> objects;
    objects.reserve(leaves.size());
    for (int i = 0; i < leaves.size(); ++i) {
        objects.append(leafJson(i, leaves[i]));
    }
    return JsonText::array(objects);
}
