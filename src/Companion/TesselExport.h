#pragma once

#include <QtGlobal>

/// Marks what applications call for every value of every cycle: their calls go straight to it,
/// without the jump in between that calls into a shared library else take.
#if defined(__has_attribute)
# if __has_attribute(noplt)
#  define TESSEL_OFTEN __attribute__((noplt))
# endif
#endif
#if !defined(TESSEL_OFTEN)
# define TESSEL_OFTEN
#endif

/// Marks what applications may link against. Everything without it stays inside the library, which
/// is built with hidden visibility.
#define TESSEL_EXPORT Q_DECL_EXPORT
