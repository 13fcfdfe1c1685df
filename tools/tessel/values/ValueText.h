#pragma once

#include "ProcessData/ProcessValue.h"
#include "values/LeafSlot.h"

#include <QString>
#include <QVariant>

/// Process values as text, and text as process values.

/// The value without its state; empty for an erroneous one. Numbers read back as what they were.
QString valueText(const ProcessValue &value);
/// The same for the eye: floating-point numbers have at most six digits.
QString shortValueText(const ProcessValue &value);
/// The value as JSON: a number, a boolean, a text, null for an erroneous value. NaN and the
/// infinities, which JSON has no number for, are the texts "nan", "inf" and "-inf".
QString valueJson(const ProcessValue &value);

/// A leaf and its value as a JSON object: `url`, `value`, `state`, `stateName`, `unit`, `type`.
QString leafJson(const Leaf &leaf, const ProcessValue &value);

/// Any value of a description as JSON, lists and objects included; numbers as valueJson() has them.
QString nestedJson(const QVariant &value);

/// The value that @p text means in this slot. A Failure of Refused, which names @p url, if it means
/// none there or would not read back as what was asked for.
QVariant valueFromText(const QString &text, const LeafSlot &slot, const QString &url);
