#pragma once

#include "Companion/TesselExport.h"

#include <QDateTime>
#include <QString>

/// Points in time as text that sorts, parses back and names its time zone.
class TESSEL_EXPORT IsoDateConverter
{
public:
    IsoDateConverter() = delete;

    /// ISO 8601 date and time with milliseconds and offset from UTC, as in
    /// `2026-03-01T12:00:00.250+01:00`; an offset of zero is written as `Z`. Empty for an invalid
    /// time and for a year that four digits cannot write.
    static QString convertDateTimeToIsoDateWithMsAndTimezone(const QDateTime &dateTime);
};
