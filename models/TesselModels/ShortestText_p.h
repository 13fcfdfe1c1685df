#pragma once

#include <QString>
#include <QVariant>

#include <array>
#include <charconv>
#include <cmath>

/// The shortest text that reads back as the same number.
template <class Number>
QString shortestText(Number number)
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

/// The same of whatever a value is: of a float the variant would show the digits of a double.
inline QString shortestTextOf(const QVariant &value)
{
    if (value.userType() == QMetaType::Float) {
        return shortestText(value.toFloat());
    }
    return value.userType() == QMetaType::Double ? shortestText(value.toDouble())
                                                 : value.toString();
}
