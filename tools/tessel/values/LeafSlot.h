#pragma once

#include "ProcessData/Linux/ProcessDataValue.h"

#include <QString>
#include <QVector>

/// A process value of a description and where it stands in the tree.
struct Leaf
{
    QString url;
    ProcessDataValueSharedPointer element;
};

/// The slot of a leaf as its description gives it. Offsets and sizes in bytes.
struct LeafSlot
{
    static constexpr quint32 sm_metadataWidth =
        4; ///< bytes of the error state, whatever the size says

    quint32 offset;
    quint32 size;
    quint32 relativeOffsetMetadata;
    quint32 sizeMetadata;
    quint32 bitmask;
    QString type;
    /// QMetaType::Type; 0 for an unknown type name.
    int metaType;
    bool isReadOnly;

    bool hasMetadata() const { return sizeMetadata != 0; }
    /// Where the error state begins, counted in the buffer.
    quint64 stateBegin() const { return quint64(offset) + relativeOffsetMetadata; }
    /// One or more bits of a byte that others may share.
    bool isBit() const;
    /// Whether an error state that is written into the slot can be read back from it.
    bool carriesErrorState() const;
    /// Behind the value. Of a bit only the one byte is touched, whatever size the description gives.
    quint64 valueEnd() const { return quint64(offset) + (isBit() ? 1 : size); }
    /// First byte behind value and metadata, counted in the buffer.
    quint64 end() const;
};

LeafSlot slotOf(const Leaf &leaf);
/// The type, and behind that of single bits their mask: "bit 0x01".
QString typeText(const LeafSlot &slot);
/// A text property of the leaf, such as its unit; empty if it has none.
QString textProperty(const Leaf &leaf, const QString &key);

/// Why the slot of a bound leaf cannot be used in a buffer of @p bufferSize bytes; empty if it can.
QString slotProblem(const Leaf &leaf, quint32 bufferSize);
