#include "mirror/ByteOrder.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <QMap>
#include <QtEndian>

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

/// Bytes of what is turned as one inside a value.
quint32 unitOf(const LeafSlot &leaf)
{
    switch (
        Definitions::getBasicDataTypeMapForProcessData().value(leaf.type, QMetaType::UnknownType)) {
    case QMetaType::QString: return 2;
    // Booleans and bits are read from one byte, however many there are.
    case QMetaType::Bool:
    case QMetaType::UnknownType: return 1;
    default: return leaf.sizeValue;
    }
}

} // namespace

ByteOrder::ByteOrder(const SlotLayout &layout)
{
    QMap<quint32, quint32> places;
    const auto add = [&](quint64 offset, quint32 size) {
        if (size > 1 && offset + size <= layout.bufferSize) {
            places.insert(static_cast<quint32>(offset), size);
        }
    };
    for (const auto &leaf : layout.leaves) {
        const quint32 unit = unitOf(leaf);
        if (quint64{leaf.offset} + leaf.sizeValue <= layout.bufferSize) {
            for (quint32 at = 0; unit > 1 && at + unit <= leaf.sizeValue; at += unit) {
                add(quint64{leaf.offset} + at, unit);
            }
        }
        if (leaf.sizeMetadata != 0) {
            add(quint64{leaf.offset} + leaf.relativeOffsetMetadata, sizeof(quint32));
        }
    }
    for (auto place = places.cbegin(); place != places.cend(); ++place) {
        m_places.append({place.key(), place.value()});
    }
}

ByteOrder::Order ByteOrder::ofThisMachine()
{
    return Q_BYTE_ORDER == Q_LITTLE_ENDIAN ? Order::LowestFirst : Order::HighestFirst;
}

void ByteOrder::turn(unsigned char *bytes) const
{
    for (const auto &place : m_places) {
        std::reverse(bytes + place.offset, bytes + place.offset + place.size);
    }
}
