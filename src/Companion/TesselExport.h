#pragma once

#include <QtGlobal>

/// Marks what applications may link against. Everything without it stays inside the library, which
/// is built with hidden visibility.
#define TESSEL_EXPORT Q_DECL_EXPORT
