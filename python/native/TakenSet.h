#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "ProcessData/ProcessValue.h"

#include <QVector>

#include <memory>
#include <vector>

class OpenRegion;

/// One consistent set that was read, with the leaves that it tells of.
///
/// Each value is decoded when it is asked for, as long as the region is open, and all that are left when it is
/// closed: a set outlives its region. Any thread may use it.
class TakenSet
{
public:
    TakenSet(std::shared_ptr<OpenRegion> region, QVector<int> leaves, ProcessDataSnapshot snapshot);
    ~TakenSet();

    TakenSet(const TakenSet &) = delete;
    TakenSet &operator=(const TakenSet &) = delete;

    quint64 generation() const { return m_snapshot.getGeneration(); }
    /// Indices into those of the region.
    const QVector<int> &leaves() const { return m_leaves; }
    /// At the place of leaves().
    ProcessValue value(int place) const;
    /// All of them, in the order of leaves().
    std::vector<ProcessValue> values() const;
    /// All values as numbers, NaN where one is not valid or no number. @p numbers has room for as many as
    /// there are leaves.
    void fill(double *numbers) const;
    /// All error states, in the same order.
    void fillStates(qint32 *states) const;

    /// For the region, which calls it before it ends.
    void decodeAll();

private:
    void decode(int place, ProcessValue &value) const;
    std::vector<ProcessValue> decoded() const;

    std::shared_ptr<OpenRegion> m_region;
    QVector<int> m_leaves;
    ProcessDataSnapshot m_snapshot;
    std::vector<ProcessValue> m_decoded; ///< of a region that was closed
    bool m_isDecoded = false;
};
