#pragma once

#include "ProcessDataManagement/LayoutFingerprint.h"
#include "ProcessDataManagement/LayoutLeaf_p.h"

#include <vector>

/// The numbers of a LayoutFingerprint, of leaves in the order of their URLs.
namespace LayoutDigest {

quint64 valueOf(const std::vector<LayoutLeaf> &leaves);
/// Of the leaves below @p root, none of which is kept.
quint64 valueOf(const LayoutFingerprint::BaseClassSharedPointer &root);

LayoutFingerprint::Parts partsOf(const std::vector<LayoutLeaf> &leaves, quint32 bufferSize);
QString findFirstDifference(const std::vector<LayoutLeaf> &leaves,
                            const LayoutFingerprint::Parts &others, quint32 bufferSize);

} // namespace LayoutDigest
