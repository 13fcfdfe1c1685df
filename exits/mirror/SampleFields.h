#pragma once

#include <QString>

/// Bytes of a key or a name in a sample, with the zero at the end.
constexpr int sampleTextRoom = 256;

/// @p target has sampleTextRoom bytes; what does not fit is cut.
void setSampleText(char *target, const QString &text);
/// Also of one without a zero.
QString sampleText(const char *text);
/// Whether those are the bytes of it, which costs less than to make a text of them.
bool isSampleText(const char *text, const QByteArray &utf8);
/// Microseconds since 1970 in UTC, of the clock of this machine.
qint64 sampleTime();
