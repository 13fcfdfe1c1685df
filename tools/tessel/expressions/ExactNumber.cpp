#include "expressions/ExactNumber.h"

#include <QByteArray>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double beyond64Bits = 18446744073709551616.0;

bool isDigit(QChar character)
{
    return character >= QLatin1Char('0') && character <= QLatin1Char('9');
}

bool isHexDigit(QChar character)
{
    const QChar lower = character.toLower();
    return isDigit(character) || (lower >= QLatin1Char('a') && lower <= QLatin1Char('f'));
}

/// A number as it is written.
struct Parts
{
    bool isNegative = false;
    bool isHexadecimal = false;
    QString digits; ///< before and behind the point
    int decimals = 0;
    QString exponent; ///< with its sign
};

QString takeDigits(const QString &text, int &at, bool (*isTaken)(QChar))
{
    const int begin = at;
    while (at < text.size() && isTaken(text[at])) {
        ++at;
    }
    return text.mid(begin, at - begin);
}

/// False if the text has no exponent where one begins.
bool takeExponent(const QString &text, int &at, Parts &parts)
{
    if (at == text.size() || text[at].toLower() != QLatin1Char('e')) {
        return true;
    }
    ++at;
    const bool hasSign = at < text.size()
                         && (text[at] == QLatin1Char('-') || text[at] == QLatin1Char('+'));
    const QString sign = hasSign ? text.mid(at++, 1) : QString();
    const QString digits = takeDigits(text, at, isDigit);
    parts.exponent = sign + digits;
    return !digits.isEmpty();
}

std::optional<Parts> partsOf(const QString &text)
{
    Parts parts;
    int at = 0;
    if (text.startsWith(QLatin1Char('-')) || text.startsWith(QLatin1Char('+'))) {
        parts.isNegative = text.startsWith(QLatin1Char('-'));
        at = 1;
    }
    if (text.midRef(at, 2).compare(QLatin1String("0x"), Qt::CaseInsensitive) == 0) {
        at += 2;
        parts.isHexadecimal = true;
        parts.digits = takeDigits(text, at, isHexDigit);
    } else {
        parts.digits = takeDigits(text, at, isDigit);
        if (at < text.size() && text[at] == QLatin1Char('.')) {
            const QString decimals = takeDigits(text, ++at, isDigit);
            parts.decimals = decimals.size();
            parts.digits += decimals;
        }
        if (parts.digits.isEmpty() || !takeExponent(text, at, parts)) {
            return {};
        }
    }
    return at == text.size() && !parts.digits.isEmpty() ? std::make_optional(parts) : std::nullopt;
}

/// How the digits would stand without a point, a fraction and leading zeros.
struct WholeDigits
{
    QString digits;
    bool hasFraction;
};

/// Nothing if there are more digits than 64 bits have.
std::optional<WholeDigits> wholeDigits(const Parts &parts)
{
    constexpr int mostDigits = 20;
    constexpr int mostExponentDigits = 7;
    if (parts.exponent.size() > mostExponentDigits) {
        return {};
    }
    const int first = static_cast<int>(
        std::find_if(parts.digits.cbegin(), parts.digits.cend(),
                     [](QChar digit) { return digit != QLatin1Char('0'); })
        - parts.digits.cbegin());
    const QString digits = parts.digits.mid(first);
    const int size = digits.size() - parts.decimals + parts.exponent.toInt();
    if (digits.isEmpty()) {
        return WholeDigits{QStringLiteral("0"), false};
    }
    if (size > mostDigits) {
        return {};
    }
    const QStringRef fraction = size < 0 ? digits.midRef(0) : digits.midRef(size);
    const bool hasFraction = std::any_of(fraction.cbegin(), fraction.cend(),
                                         [](QChar digit) { return digit != QLatin1Char('0'); });
    const QString whole = size <= 0 ? QStringLiteral("0")
                                    : digits.left(size).leftJustified(size, QLatin1Char('0'));
    return WholeDigits{whole, hasFraction};
}

double withSign(bool isNegative, double number)
{
    return isNegative ? -number : number;
}

} // namespace

ExactNumber ExactNumber::fromWhole(bool isNegative, quint64 magnitude)
{
    ExactNumber number;
    number.m_isNegative = isNegative && magnitude != 0;
    number.m_whole = magnitude;
    number.m_nearest = withSign(isNegative, static_cast<double>(magnitude));
    return number;
}

ExactNumber ExactNumber::fromUnsigned(quint64 number)
{
    return fromWhole(false, number);
}

ExactNumber ExactNumber::fromDouble(double number)
{
    ExactNumber exact;
    exact.m_origin = Origin::Double;
    exact.m_nearest = number;
    exact.m_isNegative = number < 0;
    const double magnitude = std::fabs(number);
    exact.m_isBeyond = magnitude >= beyond64Bits;
    if (!exact.m_isBeyond && !std::isnan(number)) {
        exact.m_whole = static_cast<quint64>(magnitude);
        exact.m_hasFraction = std::trunc(magnitude) != magnitude;
    }
    return exact;
}

std::optional<ExactNumber> ExactNumber::fromContent(const QVariant &content)
{
    switch (content.userType()) {
    case QMetaType::Int:
    case QMetaType::LongLong: {
        const qint64 number = content.toLongLong();
        // The least number has no positive twin.
        const quint64 magnitude = number < 0 ? ~static_cast<quint64>(number) + 1
                                             : static_cast<quint64>(number);
        return fromWhole(number < 0, magnitude);
    }
    case QMetaType::UInt:
    case QMetaType::ULongLong: return fromUnsigned(content.toULongLong());
    case QMetaType::Double: return fromDouble(content.toDouble());
    case QMetaType::Float: {
        ExactNumber number = fromDouble(content.toDouble());
        number.m_origin = Origin::Float;
        return number;
    }
    default: return {};
    }
}

std::optional<ExactNumber> ExactNumber::fromText(const QString &text)
{
    const auto parts = partsOf(text);
    if (!parts) {
        return {};
    }
    bool ok = false;
    if (parts->isHexadecimal) {
        const quint64 magnitude = parts->digits.toULongLong(&ok, 16);
        return ok ? std::make_optional(fromWhole(parts->isNegative, magnitude)) : std::nullopt;
    }
    const auto whole = wholeDigits(*parts);
    const quint64 magnitude = whole ? whole->digits.toULongLong(&ok) : 0;
    if (ok && !whole->hasFraction) {
        return fromWhole(parts->isNegative, magnitude);
    }
    bool isDouble = false;
    const double nearest = text.toDouble(&isDouble);
    // Digits that are not all zero and yet nothing: the toolkit takes what is too small for 0.
    if (!isDouble || !std::isfinite(nearest) || nearest == 0) {
        return {};
    }
    ExactNumber number = fromDouble(nearest);
    number.m_origin = Origin::Written;
    number.m_isBeyond = !ok;
    number.m_whole = magnitude;
    number.m_hasFraction = ok;
    return number;
}

bool ExactNumber::isNaN() const
{
    return std::isnan(m_nearest);
}

/// Whether a written number stands for the nearest one of the other side's type.
bool ExactNumber::isNearestMeant(const ExactNumber &other) const
{
    return m_origin == Origin::Written && other.m_origin != Origin::Whole;
}

double ExactNumber::nearestFor(const ExactNumber &other) const
{
    const bool isRounded = m_origin == Origin::Written && other.m_origin == Origin::Float
                           && std::fabs(m_nearest) <= std::numeric_limits<float>::max();
    return isRounded ? static_cast<double>(static_cast<float>(m_nearest)) : m_nearest;
}

Order ExactNumber::compareMagnitude(const ExactNumber &other) const
{
    const auto orderOf = [](auto left, auto right) {
        return left < right ? Order::Less : left == right ? Order::Equal : Order::Greater;
    };
    if (m_isBeyond != other.m_isBeyond) {
        return m_isBeyond ? Order::Greater : Order::Less;
    }
    if (m_isBeyond) {
        return orderOf(std::fabs(m_nearest), std::fabs(other.m_nearest));
    }
    return m_whole != other.m_whole ? orderOf(m_whole, other.m_whole)
                                    : orderOf(int(m_hasFraction), int(other.m_hasFraction));
}

std::optional<Order> ExactNumber::compare(const ExactNumber &left, const ExactNumber &right)
{
    if (left.isNaN() || right.isNaN()) {
        return {};
    }
    // Two fractions are both doubles, or one of them is to become one.
    const bool areDoubles = left.m_origin != Origin::Whole && right.m_origin != Origin::Whole;
    if (areDoubles || left.isNearestMeant(right) || right.isNearestMeant(left)) {
        const double a = left.nearestFor(right);
        const double b = right.nearestFor(left);
        return a < b ? Order::Less : a == b ? Order::Equal : Order::Greater;
    }
    if (left.m_isNegative != right.m_isNegative) {
        return left.m_isNegative ? Order::Less : Order::Greater;
    }
    return left.m_isNegative ? right.compareMagnitude(left) : left.compareMagnitude(right);
}

ExactNumber ExactNumber::distance(const ExactNumber &left, const ExactNumber &right)
{
    if (left.m_origin != Origin::Whole || right.m_origin != Origin::Whole) {
        return fromDouble(std::fabs(left.m_nearest - right.m_nearest));
    }
    if (left.m_isNegative == right.m_isNegative) {
        return fromUnsigned(std::max(left.m_whole, right.m_whole)
                            - std::min(left.m_whole, right.m_whole));
    }
    const quint64 sum = left.m_whole + right.m_whole;
    return sum < left.m_whole
               ? fromDouble(static_cast<double>(left.m_whole) + static_cast<double>(right.m_whole))
               : fromUnsigned(sum);
}

bool looksLikeNumber(const QString &text)
{
    return partsOf(text).has_value();
}
