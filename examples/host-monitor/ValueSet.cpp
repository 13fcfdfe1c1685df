#include "ValueSet.h"

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_UNDERRANGE;

void ValueSet::addWithin(const QString &url, const std::optional<qint64> &number, qint64 least,
                         qint64 most)
{
    if (number && *number < least) {
        addError(url, PROCESS_VALUE_ERROR_TYPE_UNDERRANGE);
    } else if (number && *number > most) {
        addError(url, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    } else {
        add(url, number);
    }
}
