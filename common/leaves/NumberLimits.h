#pragma once

#include <QString>
#include <QVariant>

/// The limit that a property of a description gives, as a number of the type; invalid if it gives none. Of a limit
/// that is no number of the type there is nothing to hold to.
QVariant limitOf(QVariant property, int metaType);
/// Why a number lies outside its limits, such as "11 is above the upper limit, 10"; empty if it does not, and of
/// texts and truth values, which have none. Limits are taken as limitOf() does.
QString limitProblem(const QVariant &value, const QVariant &minLimit, const QVariant &maxLimit);
