#include "ProcessDataManagement/LayoutFingerprint.h"

#include "ProcessDataManagement/LayoutDigest_p.h"

LayoutFingerprint::LayoutFingerprint(const BaseClassSharedPointer &root)
    : m_leaves(std::make_shared<const std::vector<LayoutLeaf>>(layoutLeavesOf(root)))
{
}

quint64 LayoutFingerprint::getValue() const
{
    return LayoutDigest::valueOf(LayoutDigest::in(*m_leaves));
}

LayoutFingerprint::Parts LayoutFingerprint::getParts(quint32 bufferSize) const
{
    return LayoutDigest::partsOf(LayoutDigest::in(*m_leaves), bufferSize);
}

QString LayoutFingerprint::findFirstDifference(const LayoutFingerprint::Parts &others,
                                               quint32 bufferSize) const
{
    return LayoutDigest::findFirstDifference(LayoutDigest::in(*m_leaves), others, bufferSize);
}
