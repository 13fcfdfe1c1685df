#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "torture/SharedLedger.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <vector>

namespace Torture {

/// The two halves of a set, and the values that are written one by one.
enum Group { FirstGroup = 0, SecondGroup = 1, SingleValues = 2 };

/// What the writer of a number wrote. A number for both groups makes the state of one group tell
/// how new the other has to be.
enum class Content : quint64 { Both = 0, First = 1, Second = 2, Single = 3 };

/// The number from which all values of a set follow: the later the set, the greater. Zero stands
/// for what a creator leaves. Exact in a double for 2^48 sets.
struct SetNumber
{
    static quint64 make(quint64 count, int slot, Content content)
    {
        return count << 5U | static_cast<quint64>(slot) << 2U | static_cast<quint64>(content);
    }
    static quint64 count(quint64 number) { return number >> 5U; }
    static int slot(quint64 number) { return static_cast<int>(number >> 2U & 7U); }
    static Content content(quint64 number) { return static_cast<Content>(number & 3U); }
};

/// One leaf of the description.
struct LeafPlan
{
    QString name;
    QString type;
    int group;
    int offset;
    int size;
    int metadata; ///< bytes of the error word
    int relativeMetadata;
    int bitmask;
    bool isNumber; ///< holds the number itself
};

using GroupValues = std::vector<ProcessValue>;

/// Which values belong to which number, and the leaves that carry them.
class SetCodec
{
public:
    static QByteArray description(const QString &key, bool isDoubleBuffer);

    explicit SetCodec(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root);

    bool isComplete() const;
    int size(Group group) const { return m_leaves[group].size(); }
    /// One leaf of a group inside a write lock.
    bool writeLeaf(Group group, int index, quint64 number) const;
    /// All leaves of a group inside a read lock.
    void readGroup(Group group, GroupValues &values) const;
    /// The same from a copy of the set. False if it does not hold all leaves.
    bool readGroup(Group group, const ProcessDataSnapshot &set, GroupValues &values) const;
    /// The number that a group says it has. False if its leaf holds what no writer writes.
    static bool numberOf(const GroupValues &values, quint64 &number);
    /// Empty if all values belong to @p number, else a sentence about the first that does not.
    QString findForeign(Group group, const GroupValues &values, quint64 number) const;

    /// The leaf that holds the number of a group.
    ProcessDataValue &groupNumber(Group group) const;
    /// The leaves that the process in @p slot writes one by one: a number, and a text of a number.
    ProcessDataValue &singleNumber(int slot) const;
    ProcessDataValue &singleText(int slot) const;

    static ProcessValue expectedValue(const LeafPlan &leaf, int index, quint64 number);

private:
    QVector<LeafPlan> m_plans[3];
    QVector<ProcessDataValueSharedPointer> m_leaves[3];
};

} // namespace Torture
