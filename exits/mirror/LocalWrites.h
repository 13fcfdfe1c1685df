#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "mirror/WriteRequest.h"
#include "region/FollowedLeaf.h"

#include <QVector>

/// Finds what others than its receiver have written into the region of a mirror: whatever differs from
/// what the receiver published last, but is not found again once it was.
class LocalWrites
{
public:
    /// @p manager has to live longer, and to have published.
    LocalWrites(ProcessDataManager &manager, const QVector<FollowedLeaf> &leaves);

    /// Notes what is published as that of the receiver. Inside the write lock, in which it has published.
    void noteShown();
    /// Notes what is published now, and what of it is somebody else's.
    void look();
    /// Whether the set in @p bytes, one buffer, is another one than was seen last.
    bool isOther(const unsigned char *bytes) const;

    /// What the receiver published last; null if that could not be kept.
    const unsigned char *shown() const { return m_shown.getBytes(); }
    /// What was found since, a vector for each look that found something, with the leaves in their order.
    QVector<QVector<RequestedValue>> takeFound();

private:
    ProcessDataManager &m_manager;
    QVector<FollowedLeaf> m_leaves;
    ProcessDataSnapshot m_shown;
    ProcessDataSnapshot m_seen;
    QVector<QVector<RequestedValue>> m_found;
};
