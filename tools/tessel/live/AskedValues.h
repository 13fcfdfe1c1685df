#pragma once

#include "descriptions/DescriptionSource.h"
#include "live/LiveRegion.h"
#include "text/Failure.h"

#include <QJsonValue>
#include <QSet>
#include <QVector>

/// Values that somebody wants to write into one region: all of them are looked over before one is written.
///
/// What cannot be written is kept until takeAll(), so that one run tells of everything.
class AskedValues
{
public:
    enum class Limits {
        Checked,
        Ignored ///< The limits of the description do not count.
    };

    AskedValues(const DescriptionSource &description, Limits limits);

    /// A value as it is typed.
    void add(const QString &url, const QString &text);
    /// A value as JSON has it, or an object with an error state: {"state": "overrange"}.
    void add(const QString &url, const QJsonValue &value);
    /// One object of what `get --json` prints: a value, or a state that is not 0.
    void addPrinted(const QJsonValue &object);

    /// What is to be written. A Failure if any of it was refused, after a line for each.
    QVector<LeafWrite> takeAll() const;

private:
    template <class Make>
    void tryToAdd(const QString &url, const Make &make);
    ProcessValue checkedValue(const Leaf &leaf, const QString &text) const;
    ProcessValue fromJson(const Leaf &leaf, const QJsonValue &value) const;

    const DescriptionSource &m_description;
    Limits m_limits;
    QVector<LeafWrite> m_writes;
    QSet<const ProcessDataValue *> m_given; ///< the elements of the writes
    QVector<Failure> m_refusals;
};

/// The leaf, if it may be written by others than its creator. A Failure of Refused if it may not.
Leaf writableLeafAt(const DescriptionSource &description, const QString &url);
/// An error state for a leaf whose slot can hold it. A Failure of Refused where it would be lost and the value
/// read as a valid one.
ProcessValue stateFor(const Leaf &leaf, ProcessDataDefinitions::ErrorTypes state);
