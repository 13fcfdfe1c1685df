#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "FuzzTarget.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "ToolkitLeak.h"

#include <QVector>

// The builder lays out any two process descriptions: slots back to back, a part behind the root.
// Absurd numbers wrap around in 32 bits.
//
// An input is the description of a root and, behind a zero byte, the one of a part.

namespace {

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Element = Base::BaseClassSharedPointer;

Element parse(const QByteArray &description)
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(description,
                                                                  QStringLiteral("process.json"));
}

Base::ListElements leavesOf(const Element &root)
{
    Base::ListElements leaves;
    root->collectElements(leaves, true);
    return leaves;
}

/// Numbers that wrap around as the builder's do.
quint32 numberOf(const Element &element, const QString &key)
{
    return static_cast<quint32>(element->getProperty(key).toInt());
}

QVector<quint32> offsetsOf(const Base::ListElements &leaves)
{
    QVector<quint32> offsets;
    for (const Element &leaf : leaves) {
        offsets.append(numberOf(leaf, Definitions::getKeyDataPropertyOffsetSharedMemory()));
    }
    return offsets;
}

void checkLayout(const Element &root)
{
    const ProcessDataBuilder builder;
    int end = 7;
    bool isChanged = false;
    if (!builder.setOffsetFromSharedMemory(root, 0, end, isChanged)) {
        return;
    }
    quint32 expected = 0;
    const Base::ListElements leaves = leavesOf(root);
    for (const Element &leaf : leaves) {
        require(numberOf(leaf, Definitions::getKeyDataPropertyOffsetSharedMemory()) == expected,
                "slots lie back to back");
        expected += numberOf(leaf, Definitions::getKeyDataPropertySizeValue())
                    + numberOf(leaf, Definitions::getKeyDataPropertySizeMetadata());
    }
    require(static_cast<quint32>(end) == expected, "the end is behind the last slot");
    require(builder.setOffsetFromSharedMemory(root, 0, end, isChanged) && !isChanged,
            "a second layout changes nothing");
}

void checkMerge(Element root, Element part)
{
    const QString &sizeKey = Definitions::getKeyDataPropertySizeOfSharedMemory();
    const quint32 rootSize = numberOf(root, sizeKey);
    const quint32 partSize = numberOf(part, sizeKey);
    const Base::ListElements leaves = leavesOf(part);
    QVector<quint32> expected = offsetsOf(leaves);
    int size = 7;
    int offset = 7;
    if (!ProcessDataBuilder().buildProcessData(root, part, QStringLiteral("part"), size, offset)) {
        return;
    }
    for (quint32 &moved : expected) {
        moved += rootSize;
    }
    require(offsetsOf(leaves) == expected, "every slot of the part moves by the size of the root");
    require(numberOf(root, sizeKey) == rootSize + partSize, "the root grows by the part");
    require(static_cast<quint32>(size) == partSize && static_cast<quint32>(offset) == rootSize,
            "size and place of the part are told");
    require(root->getLeaf(QStringLiteral("part")) == part, "the part hangs in the root");
    require(!part->hasProperty(Definitions::getStrKeyProcessDataMemory()),
            "a part has no memory of its own");
}

} // namespace

void runInput(const QByteArray &input)
{
    const int end = input.indexOf('\0');
    const QByteArray rootText = input.left(end);
    const QByteArray partText = end < 0 ? rootText : input.mid(end + 1);
    const ToolkitLeak rootLeak(rootText);
    const ToolkitLeak partLeak(partText);
    const Element root = parse(rootText);
    const Element part = parse(partText);
    if (!root.isNull() && !part.isNull()) {
        checkMerge(root, part);
        checkLayout(root);
    }
}
