#pragma once

#include "live/RegionLook.h"
#include "values/SlotRanges.h"

#include <QString>
#include <QVector>

/// Something that a reader of a value should know before he trusts it.
struct Suspicion
{
    QString name;                   ///< short and lasting, such as `never-written`
    QString text;                   ///< a sentence without its full stop
    std::optional<qint64> pid = {}; ///< of the process that it is about
};

/// What is suspicious about a region whatever its description says, the worst first.
QVector<Suspicion> suspicionsOf(const RegionLook &look);

/// What is suspicious about the region as a whole, the worst first.
QVector<Suspicion> suspicionsOf(const RegionLook &look, const DescriptionSource &description);

/// What is suspicious about one leaf and its slot, which lies in the buffers as @p found, the worst first.
/// @p ranges are those of all leaves.
QVector<Suspicion> suspicionsOf(const Leaf &leaf, const QVector<BufferedSlot> &found,
                                const RegionLook &look, const DescriptionSource &description,
                                const SlotRanges &ranges);
