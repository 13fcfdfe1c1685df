#pragma once

#include "Validation/CheckedFile_p.h"

/// What holds for any JSON, whatever it describes.
namespace DocumentRules {

/// The keys of @p object, but not what is below it.
void checkKeys(CheckedFile &file, const JsonText::Value &object, const QString &url);
/// Keys and numbers of @p value and of all below it.
void checkPlain(CheckedFile &file, const JsonText::Value &value, const QString &url);
/// Whether a number is read as it is written.
bool isReadAsWritten(const CheckedFile &file, const JsonText::Value &number);

} // namespace DocumentRules
