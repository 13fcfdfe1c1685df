#pragma once

#include "region/RegionFollower.h"

#include <QVector>

/// A value or error state for a leaf of a followed region.
struct LeafWrite
{
    int leaf;
    ProcessValue value;
};

/// Several values that are written under one lock and published as one set, or not at all.
struct SetWriting
{
    QVector<ProcessValue> former; ///< what the leaves had, in the order of the writes
    QString problem;              ///< not empty: nothing was published
    int problemLeaf = -1;         ///< the one that could not be written

    /// The region has to be up, and the leaves to have elements.
    static SetWriting publish(RegionFollower &region, const QVector<LeafWrite> &writes);
};
