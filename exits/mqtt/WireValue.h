#pragma once

#include "mqtt/Payload.h"

/// The data type of Sparkplug B for a leaf of the type @p name, such as `float`; Unknown for a name that is
/// no type.
DataType dataTypeOf(const QString &name);

/// The name of a data type, for messages: `Int32`; `type 77` for a number that is none.
QString dataTypeName(DataType type);

/// @p value of a leaf of the given type, as it travels; invalid if it is none of the type.
QVariant wireValueOf(DataType type, const QVariant &value);

/// What @p wire means in a leaf of the given type: a number, boolean or text. Invalid if it travels in
/// another form than values of that type do, or is out of its range.
QVariant valueOfWire(DataType type, const QVariant &wire);
