#pragma once

#include "expressions/Expression.h"

#include <QStringList>

/// Two lines that show where in an expression something stands: the text around it, and marks below. A long
/// text is cut.
QStringList markedExcerpt(const QString &text, const TextPlace &place);
/// Which character of the text that is, from 1.
int columnOf(const QString &text, const TextPlace &place);
