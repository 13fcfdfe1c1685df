#pragma once

#include "ProcessData/ProcessValue.h"

#include <QString>

#include <pybind11/pybind11.h>

// What the types of Qt are in Python. All of it needs the interpreter's lock.

/// A text; UTF-16 that is none comes through as it is.
pybind11::str pythonText(const QString &text);
/// The other way. Throws a Failure of TypeRefused if @p text holds half a character.
QString qtText(pybind11::handle text);

/// int, float, bool, str, None, or lists and dictionaries of them; integers keep all their digits.
pybind11::object pythonObject(const QVariant &value);
/// The content of a value, None unless it is valid.
pybind11::object pythonContent(const ProcessValue &value);
