#pragma once

#include "ProcessData/ProcessValue.h"

#include <QByteArray>
#include <QPair>
#include <QString>
#include <QVector>

/// JSON as UTF-8 text: members in the order in which they were given, numbers without rounding.
namespace JsonText {

using Members = QVector<QPair<const char *, QByteArray>>;

QByteArray text(const QString &text);
QByteArray boolean(bool value);
/// Values are JSON texts already, keys need no escapes.
QByteArray object(const Members &members);
QByteArray array(const QVector<QByteArray> &values);

/// A value as `tessel get --json` has it: null unless valid, 64-bit integers as numbers with all their
/// digits, and NaN and the infinities as the texts "nan", "inf" and "-inf".
QByteArray value(const ProcessValue &value);
/// The same for a reader whose numbers are all doubles: 64-bit integers are texts.
QByteArray valueForBrowser(const ProcessValue &value);
/// A limit of a description, as valueForBrowser() has values; null if it is invalid.
QByteArray numberForBrowser(const QVariant &number);

} // namespace JsonText
