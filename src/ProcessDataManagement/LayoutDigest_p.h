#pragma once

#include "ProcessDataManagement/LayoutFingerprint.h"
#include "ProcessDataManagement/LayoutLeaf_p.h"

#include <functional>
#include <vector>

/// The numbers of a LayoutFingerprint.
namespace LayoutDigest {

/// Gives the leaves of a layout, in the order of their URLs, one by one to who asks.
using Leaves = std::function<void(const std::function<void(const LayoutLeaf &leaf)> &take)>;

struct Numbers
{
    quint64 value;
    LayoutFingerprint::Parts parts;
};

quint64 valueOf(const Leaves &leaves);
/// Of the leaves below @p root, none of which is kept.
quint64 valueOf(const LayoutFingerprint::BaseClassSharedPointer &root);

LayoutFingerprint::Parts partsOf(const Leaves &leaves, quint32 bufferSize);
/// Both at once, of the leaves below @p root.
Numbers numbersOf(const LayoutFingerprint::BaseClassSharedPointer &root, quint32 bufferSize);

QString findFirstDifference(const Leaves &leaves, const LayoutFingerprint::Parts &others,
                            quint32 bufferSize);

/// Those that lie in a list.
Leaves in(const std::vector<LayoutLeaf> &leaves);

} // namespace LayoutDigest
