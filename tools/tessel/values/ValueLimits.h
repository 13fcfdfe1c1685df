#pragma once

#include <QString>
#include <QVariant>

/// A limit as a description gives it, as a number of the type; invalid if there is none.
QVariant limitOf(QVariant property, int metaType);
/// Why a number lies outside its limits, such as "11 is above the upper limit, 10"; empty if it does not. All
/// of them are of one type, and an invalid limit is none.
QString limitProblem(const QVariant &value, const QVariant &least, const QVariant &most);
