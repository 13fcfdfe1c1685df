#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "ProcessData/ProcessValue.h"

#include <QVector>

#include <vector>

class ProcessDataManager;

/// A copy of one whole set of a region: its bytes and its generation.
///
/// Taking one costs what copying the bytes costs; leaves are decoded afterwards, by the rules of each
/// leaf, as often and as late as one likes. A value class: copies are independent. Taking needs the
/// manager, decoding needs leaves that are bound to its memory; the copy itself needs neither. Two
/// threads may use one snapshot as long as neither takes, and do not decode one leaf at once.
class TESSEL_EXPORT ProcessDataSnapshot
{
public:
    /// A copy of nothing.
    ProcessDataSnapshot() = default;

    /// Copies the published set, in place of what was copied before. Repeats as readConsistently()
    /// does; inside a read lock of this thread it copies the set of that lock, and its unlock decides.
    /// False, with the reason in the log, if no consistent set was to be had, or no room for one; the
    /// snapshot is empty then.
    bool take(ProcessDataManager &manager);

    /// Whether there is nothing in it.
    bool isEmpty() const { return m_bytes.empty(); }
    /// How often the region was swapped when the set was published; 0 with a single buffer.
    quint64 getGeneration() const { return m_generation; }
    /// The buffer as it was, getSize() bytes. Null without one.
    const unsigned char *getBytes() const { return m_bytes.data(); }
    /// Bytes of the buffer.
    unsigned int getSize() const { return static_cast<unsigned int>(m_bytes.size()); }

    /// What getValueNoLock() of the leaf would have given. False, with a warning and @p value as it
    /// was, if the leaf is not bound to the memory of this copy.
    bool getValue(const ProcessDataValue &leaf, ProcessValue &value,
                  bool keepValueOnError = false) const;

    /// Whether the leaf has another content or state in @p other. Numbers are compared bit by bit, so
    /// that NaN equals itself; what lies behind the end of a text does not count. True where one of
    /// the two does not hold the leaf.
    bool isDifferent(const ProcessDataValue &leaf, const ProcessDataSnapshot &other) const;
    /// Those of @p leaves that isDifferent(), in their order. Null ones are left out.
    QVector<ProcessDataValueSharedPointer> getDifferent(
        const QVector<ProcessDataValueSharedPointer> &leaves,
        const ProcessDataSnapshot &other) const;

private:
    bool holds(const ProcessDataValue &leaf) const;

    std::vector<unsigned char> m_bytes;
    quint64 m_generation = 0;
    quint64 m_handler = 0; ///< number of the one whose copy it is
};
