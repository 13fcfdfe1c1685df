#include "Companion/IsoDateConverter.h"

QString IsoDateConverter::convertDateTimeToIsoDateWithMsAndTimezone(const QDateTime &dateTime)
{
    // The toolkit writes an offset only for times that carry one: a local time or one of a named
    // zone would come out bare, and the reader would take it for his own. The text has room for
    // whole minutes, while the local mean times of old had offsets with seconds.
    const int offset = dateTime.offsetFromUtc();
    return dateTime.toOffsetFromUtc(offset - offset % 60).toString(Qt::ISODateWithMs);
}
