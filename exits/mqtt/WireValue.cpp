#include "mqtt/WireValue.h"

#include <QHash>

#include <limits>

namespace {

struct TypeRow
{
    const char *leafType;
    const char *name;
    DataType type;
};

constexpr TypeRow rows[] = {
    {"boolean", "Boolean", DataType::Boolean}, {"bit", "Boolean", DataType::Boolean},
    {"int8", "Int8", DataType::Int8},          {"int16", "Int16", DataType::Int16},
    {"int32", "Int32", DataType::Int32},       {"int64", "Int64", DataType::Int64},
    {"uint8", "UInt8", DataType::UInt8},       {"uint16", "UInt16", DataType::UInt16},
    {"uint32", "UInt32", DataType::UInt32},    {"uint64", "UInt64", DataType::UInt64},
    {"float", "Float", DataType::Float},       {"double", "Double", DataType::Double},
    {"string", "String", DataType::String},    {"selector", "Int32", DataType::Int32},
};

template <class Narrow>
QVariant signedOfWire(const QVariant &wire)
{
    if (wire.userType() != QMetaType::UInt) {
        return {};
    }
    const auto number = static_cast<qint32>(wire.toUInt());
    const bool fits = number >= std::numeric_limits<Narrow>::min()
                      && number <= std::numeric_limits<Narrow>::max();
    return fits ? QVariant(number) : QVariant();
}

template <class Narrow>
QVariant unsignedOfWire(const QVariant &wire)
{
    const bool fits = wire.userType() == QMetaType::UInt
                      && wire.toUInt() <= std::numeric_limits<Narrow>::max();
    return fits ? wire : QVariant();
}

QVariant ifType(const QVariant &wire, QMetaType::Type type)
{
    return wire.userType() == type ? wire : QVariant();
}

} // namespace

DataType dataTypeOf(const QString &name)
{
    for (const auto &row : rows) {
        if (name == QLatin1String(row.leafType)) {
            return row.type;
        }
    }
    return DataType::Unknown;
}

QString dataTypeName(DataType type)
{
    for (const auto &row : rows) {
        if (row.type == type) {
            return QString::fromLatin1(row.name);
        }
    }
    return QStringLiteral("type %1").arg(static_cast<quint32>(type));
}

QVariant wireValueOf(DataType type, const QVariant &value)
{
    switch (type) {
    case DataType::Int8:
    case DataType::Int16:
    case DataType::Int32:
        // Negative numbers travel as the two's complement of 32 bits, whatever their type.
        return value.isValid() ? static_cast<quint32>(value.toInt()) : QVariant();
    case DataType::UInt8:
    case DataType::UInt16:
    case DataType::UInt32: return value.isValid() ? value.toUInt() : QVariant();
    case DataType::Int64:
        return value.isValid() ? static_cast<qulonglong>(value.toLongLong()) : QVariant();
    case DataType::UInt64: return value.isValid() ? value.toULongLong() : QVariant();
    case DataType::Float: return value.isValid() ? value.toFloat() : QVariant();
    case DataType::Double: return value.isValid() ? value.toDouble() : QVariant();
    case DataType::Boolean: return value.isValid() ? value.toBool() : QVariant();
    case DataType::String: return value.isValid() ? value.toString() : QVariant();
    case DataType::Unknown: break;
    }
    return {};
}

QVariant valueOfWire(DataType type, const QVariant &wire)
{
    switch (type) {
    case DataType::Int8: return signedOfWire<qint8>(wire);
    case DataType::Int16: return signedOfWire<qint16>(wire);
    case DataType::Int32: return signedOfWire<qint32>(wire);
    case DataType::UInt8: return unsignedOfWire<quint8>(wire);
    case DataType::UInt16: return unsignedOfWire<quint16>(wire);
    case DataType::UInt32: return unsignedOfWire<quint32>(wire);
    case DataType::Int64:
        return wire.userType() == QMetaType::ULongLong
                   ? QVariant(static_cast<qlonglong>(wire.toULongLong()))
                   : QVariant();
    case DataType::UInt64: return ifType(wire, QMetaType::ULongLong);
    case DataType::Float: return ifType(wire, QMetaType::Float);
    case DataType::Double: return ifType(wire, QMetaType::Double);
    case DataType::Boolean: return ifType(wire, QMetaType::Bool);
    case DataType::String: return ifType(wire, QMetaType::QString);
    case DataType::Unknown: break;
    }
    return {};
}
