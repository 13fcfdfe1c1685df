#pragma once

#include <QtGlobal>

/// Marks what displays may link against of the models. Everything without it stays inside the library.
#define TESSEL_MODELS_EXPORT Q_DECL_EXPORT
