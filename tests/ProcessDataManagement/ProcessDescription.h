#pragma once

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "support/SegmentFile.h"
#include "support/SemaphoreSet.h"
#include "support/SlotDescription.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

/// A description of process values with a memory key of its own. What managers made under this key
/// and left behind goes with it.
struct ProcessDescription
{
    using Definitions = ConfigurationAndProcessDataDefinitions;
    using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    explicit ProcessDescription(qint64 sizeOfBuffer, bool hasDoubleBuffer = false)
        : size(sizeOfBuffer)
        , doubleBuffer(hasDoubleBuffer)
    {
    }

    QJsonObject toJson() const
    {
        QJsonObject children;
        int position = 0;
        for (auto leaf = leaves.cbegin(); leaf != leaves.cend(); ++leaf) {
            QJsonObject json = leaf.value().toJson();
            json.insert(Definitions::getKeyDataPropertyDisplayPosition(), ++position);
            children.insert(leaf.key(), json);
        }
        return {
            {Definitions::getKeyDataPropertyType(), Definitions::getKeyDataTypeTreeNode()},
            {Definitions::getKeyDataPropertyValue(), children},
            {Definitions::getKeyDataPropertySizeOfSharedMemory(), size},
            {Definitions::getKeyDataPropertyDoubleBuffer(), doubleBuffer},
            {Definitions::getStrKeyProcessDataMemory(), key},
        };
    }
    QByteArray toByteArray() const { return QJsonDocument(toJson()).toJson(); }
    Root parse() const
    {
        return ConfigurationAndProcessDataParser().createNode(
            toJson(), PropertyManagerConst::getProcessDataDescriptionFileExtension());
    }

    QString key = SemaphoreSet::uniqueKey(QStringLiteral("Process Data"));
    qint64 size;
    bool doubleBuffer;
    QMap<QString, SlotDescription> leaves;
    SegmentFile segment{key + QStringLiteral("SharedMemory")};
    SemaphoreSet semaphores{key + QStringLiteral("Semaphore")};
};

/// A number of 4 bytes with its error state behind it, 8 bytes in all.
inline SlotDescription int32Slot(quint32 offset, bool readOnly = false)
{
    SlotDescription slot;
    slot.type = QStringLiteral("int32");
    slot.offset = offset;
    slot.sizeValue = 4;
    slot.sizeMetadata = 4;
    slot.relativeOffsetMetadata = 4;
    slot.readOnly = readOnly;
    return slot;
}
