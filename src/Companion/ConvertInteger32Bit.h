#pragma once

#include "Companion/TesselExport.h"

#include <QString>

/// 32-bit integers as decimal text for display, independent of the locale.
class TESSEL_EXPORT ConvertInteger32Bit
{
public:
    ConvertInteger32Bit() = default;

    /// Sets @p text, with a minus sign where needed and no other decoration.
    void qint32ToString(int number, QString &text) const;
};
