#pragma once

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <QJsonObject>

/// The description of a process value as it stands in a file; a number that is left 0 and a flag
/// that is left false are not written into it.
struct SlotDescription
{
    QString type;
    quint32 offset = 0;
    quint32 sizeValue = 0;
    quint32 sizeMetadata = 0;
    quint32 relativeOffsetMetadata = 0;
    quint32 bitmask = 0;
    bool readOnly = false;

    QJsonObject toJson() const
    {
        using Definitions = ConfigurationAndProcessDataDefinitions;

        QJsonObject json{{Definitions::getKeyDataPropertyType(), type}};
        const auto insertNumber = [&json](const QString &key, quint32 number) {
            if (number != 0) {
                json.insert(key, static_cast<qint64>(number));
            }
        };
        insertNumber(Definitions::getKeyDataPropertyOffsetSharedMemory(), offset);
        insertNumber(Definitions::getKeyDataPropertySizeValue(), sizeValue);
        insertNumber(Definitions::getKeyDataPropertySizeMetadata(), sizeMetadata);
        insertNumber(Definitions::getKeyDataPropertyRelativeOffsetMetadata(),
                     relativeOffsetMetadata);
        insertNumber(Definitions::getKeyDataPropertyBitmask(), bitmask);
        if (readOnly) {
            json.insert(Definitions::getKeyDataPropertyReadOnly(), true);
        }
        return json;
    }
};
