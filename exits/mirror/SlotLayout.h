#pragma once

#include "region/DescriptionTree.h"

#include <QString>
#include <QStringList>
#include <QVector>

/// Where one leaf lies in a buffer, in bytes, as its description says.
struct LeafSlot
{
    QString url;
    QString type;
    quint32 offset = 0;
    quint32 sizeValue = 0;
    quint32 relativeOffsetMetadata = 0;
    quint32 sizeMetadata = 0;
    quint32 mask = 0;

    bool operator==(const LeafSlot &other) const;
    bool operator!=(const LeafSlot &other) const { return !(*this == other); }
    /// Whether a reader sees an error state that is written here.
    bool carriesState() const;
};

/// How a region is laid out, which source and mirror have to have in common.
struct SlotLayout
{
    QVector<LeafSlot> leaves; ///< in the order of their offsets
    quint64 fingerprint = 0;  ///< LayoutFingerprint; what makes it stands there
    quint32 bufferSize = 0;

    static SlotLayout of(const DescriptionTree &tree);

    /// URLs of the leaves that cannot tell that their source has gone.
    QStringList withoutState() const;
    /// The first leaf, by its offset, that is not the same in both, in words; empty if there is none.
    QString firstDifference(const SlotLayout &source) const;
};
