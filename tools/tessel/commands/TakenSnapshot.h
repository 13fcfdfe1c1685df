#pragma once

#include "descriptions/DescriptionSource.h"
#include "snapshots/Snapshot.h"

/// One consistent set of the region of a description: the leaves at the URLs, or all of them without one.
Snapshot takeSnapshot(const DescriptionSource &description, const QStringList &urls);
