#pragma once

#include <QString>
#include <QVariant>
#include <QVector>

#include <optional>

/// Data types of Sparkplug B, by its numbers.
enum class DataType : quint32 {
    Unknown = 0,
    Int8 = 1,
    Int16 = 2,
    Int32 = 3,
    Int64 = 4,
    UInt8 = 5,
    UInt16 = 6,
    UInt32 = 7,
    UInt64 = 8,
    Float = 9,
    Double = 10,
    Boolean = 11,
    String = 12
};

// A value here is in the form in which it travels: an unsigned int for all integers of up to 32 bits,
// negative ones as their two's complement, an unsigned long long for those of 64, else a float, a double, a
// boolean or a text. See WireValue.h.

struct MetricProperty
{
    QString key;
    DataType type = DataType::Unknown;
    QVariant value;
};

struct Metric
{
    QString name; ///< empty: it goes by its alias alone
    std::optional<quint64> alias;
    std::optional<quint64> timestamp;  ///< milliseconds since 1970, UTC
    DataType type = DataType::Unknown; ///< Unknown: not told
    bool isHistorical = false;
    bool isNull = false;
    /// Invalid: there is none, or one of a kind that no leaf has.
    QVariant value;
    QVector<MetricProperty> properties;
};

/// What a message of Sparkplug B carries.
struct Payload
{
    std::optional<quint64> timestamp; ///< milliseconds since 1970, UTC
    QVector<Metric> metrics;
    std::optional<quint64> seq;
};
