#pragma once

#include <QByteArray>
#include <QStringList>

/// What the toolkit's parser loses of a JSON text without a word. All take a text that it accepts.
namespace WrittenJson {

/// The text with whole numbers that would lose digits, others that would be rounded to a whole one, and each -0, as
/// texts in quotation marks, and with U+FEFF, which would be dropped at the beginning of a text, as an escape.
QByteArray withoutLosses(const QByteArray &json);
/// The text with U+FEFF as an escape, without which it is dropped at the beginning of a text.
QByteArray withEscapedMarks(QByteArray json);
/// The keys that stand twice in the object at the top, all but the last of whose values are lost.
QStringList repeatedKeys(const QByteArray &json);

} // namespace WrittenJson
