#include "leaves/ShortestText.h"

#include <array>
#include <charconv>
#include <cmath>

namespace {

template <class Number>
QString shortest(Number number)
{
    if (std::isnan(number)) {
        return QStringLiteral("nan");
    }
    if (std::isinf(number)) {
        return number < 0 ? QStringLiteral("-inf") : QStringLiteral("inf");
    }
    std::array<char, 32> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return QString::fromLatin1(text.data(), static_cast<int>(end - text.data()));
}

} // namespace

QString shortestText(double number)
{
    return shortest(number);
}

QString shortestText(float number)
{
    return shortest(number);
}

QString shortestText(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::Float: return shortest(value.toFloat());
    case QMetaType::Double: return shortest(value.toDouble());
    default: return value.toString();
    }
}
