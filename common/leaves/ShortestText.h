#pragma once

#include <QString>
#include <QVariant>

/// The shortest text that reads back as the same number; `nan`, `inf` and `-inf` for what is none. A variant alone
/// would show of a float the digits of a double.
QString shortestText(double number);
QString shortestText(float number);
/// The same of whatever a value is; texts and truth values as they are.
QString shortestText(const QVariant &value);
