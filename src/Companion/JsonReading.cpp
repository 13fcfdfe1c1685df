#include "Companion/JsonReading.h"

#include <cmath>
#include <limits>

bool readIntegerValueFromJson(const QString &key, const QJsonObject &object, int &value,
                              int /*reserved*/)
{
    const QJsonValue entry = object.value(key);
    if (!entry.isDouble()) {
        return false;
    }
    const double number = entry.toDouble();
    const bool fits = number >= std::numeric_limits<int>::min()
                      && number <= std::numeric_limits<int>::max();
    if (!fits || std::trunc(number) != number) {
        return false;
    }
    value = static_cast<int>(number);
    return true;
}
