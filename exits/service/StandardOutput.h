#pragma once

#include <QByteArray>

/// Writes all of @p text to standard output. Whoever reads there may have gone, which ends it in silence;
/// anything else that keeps it from being written throws a Refusal.
void writeToStandardOutput(const QByteArray &text);
