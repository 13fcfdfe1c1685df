#pragma once

#include "ProcessData/Linux/ProcessDataValue.h"

#include <QString>
#include <QVariant>

#include <limits>

/// What a value has to fit into, so that it reads back as what was asked for.
struct WritableSlot
{
    QString type;  ///< name of the data type, such as `uint16`
    int metaType;  ///< QMetaType::Type of its values; 0 for an unknown name
    quint32 size;  ///< bytes of the value
    bool hasState; ///< whether it has metadata
    quint32 bitmask;

    /// As the description of @p element gives it.
    static WritableSlot of(const ProcessDataValue &element);

    /// One or more bits of a byte that others may share.
    bool isBit() const;
    /// Whether an error state that is written into it can be read back from it.
    bool carriesErrorState() const;
    /// Why a value of its type would not read back as itself: a text that is too long or has a zero character, a
    /// number that stands for an error state, a bit without a mask. Empty if it would.
    QString problemOf(const QVariant &value) const;
    /// Why an error state would not read back as itself; empty if it would.
    QString problemOfState() const;
};

/// The whole numbers that some bytes hold.
template <class Number>
struct NumberRange
{
    Number least = std::numeric_limits<Number>::min();
    Number most = std::numeric_limits<Number>::max();

    /// Those of all 64 bits for a number of bytes that is none of an integer.
    static NumberRange ofBytes(quint32 bytes)
    {
        constexpr quint32 most = sizeof(Number);
        const auto unused = static_cast<int>(bytes < 1 || bytes > most ? 0 : 8 * (most - bytes));
        return {std::numeric_limits<Number>::min() >> unused,
                std::numeric_limits<Number>::max() >> unused};
    }
    bool has(Number number) const { return number >= least && number <= most; }
};
