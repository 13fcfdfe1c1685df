#pragma once

#include "Companion/TesselExport.h"

#include <QString>

/// Floating-point numbers as text for display, independent of the locale.
class TESSEL_EXPORT VEXOConvertDouble
{
public:
    VEXOConvertDouble() = default;

    /// The shortest text that reads back as the same double: `0.1`, `1e+21`. Both zeros
    /// read `0`; what is no finite number reads `nan`, `inf` or `-inf`.
    void doubleToString(double number, QString &text) const;
};
