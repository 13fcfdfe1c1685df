#pragma once

#include "live/ValueTrend.h"
#include "screen/ShownValues.h"

#include <QVector>

#include <map>

/// The trends of a few leaves: of each from the moment on at which somebody looked at it first.
class TrendMemory
{
public:
    static constexpr int sm_mostTrends = 32;

    /// Remembers the leaf from now on. Of too many, what nobody has looked at for longest is forgotten, but
    /// none of those that are @p kept.
    void follow(int leaf, const QVector<int> &kept);
    /// Null if the leaf is not followed.
    const ValueTrend *trend(int leaf) const;

    void add(ValueTrend::Time time, const ShownValues &values);
    /// Of one leaf that is followed.
    void add(int leaf, ValueTrend::Time time, const ShownValues &values);
    void addGap(ValueTrend::Time time);

private:
    QVector<int> m_order; ///< leaves, the one that was looked at last behind
    std::map<int, ValueTrend> m_trends;
};
