#pragma once

#include <QtGlobal>

/// One character of several bytes in UTF-8.
namespace Utf8Character {

/// How many bytes the character at @p at has, from 2 to 4. 0 for what is none: a stray or missing
/// continuation, a longer form than needed, half a surrogate pair, or more than U+10FFFF.
int sizeOf(const char *at, const char *end);

/// The character of @p size bytes at @p at, as sizeOf() told.
uint codePoint(const char *at, int size);

} // namespace Utf8Character
