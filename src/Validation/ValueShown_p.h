#pragma once

#include "Validation/CheckedFile_p.h"

/// A value of a description in the text of a problem: as it is written, or what it is.
QString shown(const CheckedFile &file, const JsonText::Value &value);
/// A text in quotes, cut where it is long.
QString quoted(const QString &text);
/// " (did you mean 'x'?)", or nothing.
QString hintOf(const QString &word, const QStringList &candidates);
