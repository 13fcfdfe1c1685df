#pragma once

#include <QtGlobal>

/// A number of a JSON text, as Qt 5.15 holds it: an integer wherever one says the same, also for 1.0 or
/// 1e3, and a double otherwise.
struct JsonNumber
{
    enum Form { Integer, Double, Broken };

    Form form = Broken;
    qint64 integer = 0;
    double number = 0;

    /// Reads the number at @p at and moves @p at behind it. Stops at the first byte that cannot belong to
    /// a number, at @p end at the latest. What is no number, or too large or too small for a double, is
    /// broken.
    static JsonNumber read(const char *&at, const char *end);
};
