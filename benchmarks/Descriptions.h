#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

/// Descriptions at size: nodes `group0`, `group1` ... of a hundred leaves `leaf0` ... `leaf99` each,
/// so that the depth stays the same whatever the size.
namespace Descriptions {

constexpr int leavesPerGroup = 100;

/// A configuration leaf of twelve properties.
inline QJsonObject configurationLeaf(int position)
{
    return {{QStringLiteral("type"), QStringLiteral("int32")},
            {QStringLiteral("value"), position},
            {QStringLiteral("minLimit"), -1000000},
            {QStringLiteral("maxLimit"), 1000000},
            {QStringLiteral("displayPosition"), position},
            {QStringLiteral("labelTextId"), QStringLiteral("leaf.%1").arg(position)},
            {QStringLiteral("unitType"), QStringLiteral("pressure")},
            {QStringLiteral("unit"), QStringLiteral("bar")},
            {QStringLiteral("unitText"), QStringLiteral("unit.bar")},
            {QStringLiteral("viewStart"), 0},
            {QStringLiteral("viewEnd"), 16},
            {QStringLiteral("readOnly"), false}};
}

/// A leaf of a process description of twelve properties, with a slot of its own.
inline QJsonObject processLeaf(int position)
{
    return {{QStringLiteral("type"), QStringLiteral("int32")},
            {QStringLiteral("offsetSharedMemory"), position * 8},
            {QStringLiteral("sizeValue"), 4},
            {QStringLiteral("sizeMetadata"), 4},
            {QStringLiteral("relativeOffsetMetadata"), 4},
            {QStringLiteral("displayPosition"), position},
            {QStringLiteral("labelTextId"), QStringLiteral("leaf.%1").arg(position)},
            {QStringLiteral("unit"), QStringLiteral("bar")},
            {QStringLiteral("unitText"), QStringLiteral("unit.bar")},
            {QStringLiteral("viewStart"), 0},
            {QStringLiteral("viewEnd"), 16},
            {QStringLiteral("readOnly"), false}};
}

/// The least that a configuration leaf needs to be collected in order.
inline QJsonObject smallLeaf(int position)
{
    return {{QStringLiteral("type"), QStringLiteral("int32")},
            {QStringLiteral("value"), position},
            {QStringLiteral("displayPosition"), position}};
}

inline QJsonObject node(const QJsonObject &children)
{
    return {{QStringLiteral("type"), QStringLiteral("treenode")},
            {QStringLiteral("value"), children}};
}

/// @p makeLeaf gives the leaf of a position.
template <class MakeLeaf>
QJsonObject tree(int leafCount, const MakeLeaf &makeLeaf)
{
    QJsonObject groups;
    QJsonObject leaves;
    for (int position = 0; position < leafCount; ++position) {
        const int number = position % leavesPerGroup;
        leaves.insert(QStringLiteral("leaf%1").arg(number), makeLeaf(position));
        if (number == leavesPerGroup - 1 || position == leafCount - 1) {
            groups.insert(QStringLiteral("group%1").arg(position / leavesPerGroup), node(leaves));
            leaves = {};
        }
    }
    return node(groups);
}

} // namespace Descriptions
