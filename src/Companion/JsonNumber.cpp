#include "Companion/JsonNumber_p.h"

#include <QByteArray>

#include <array>
#include <cfloat>
#include <limits>

namespace {

/// What a number is made of, as far as its digits fit into a word.
struct Digits
{
    quint64 all = 0;
    int count = 0;
    int fractionCount = 0;
    int exponent = 0;
    int exponentCount = 0;
    bool isNegative = false;
    bool hasFraction = false;
    bool hasExponent = false;
    bool isFractionZero = true;
};

constexpr int maximumCount = 18; // of digits that fit into 64 bits, whichever they are

bool isDigit(const char *at, const char *end)
{
    return at < end && *at >= '0' && *at <= '9';
}

void addDigit(Digits &digits, char digit)
{
    // Of more digits than fit only the number counts.
    digits.all = digits.all * 10 + static_cast<quint64>(digit - '0');
    ++digits.count;
}

void readFraction(Digits &digits, const char *&at, const char *end)
{
    digits.hasFraction = true;
    for (++at; isDigit(at, end); ++at) {
        addDigit(digits, *at);
        ++digits.fractionCount;
        digits.isFractionZero = digits.isFractionZero && *at == '0';
    }
}

void readExponent(Digits &digits, const char *&at, const char *end)
{
    digits.hasExponent = true;
    ++at;
    const bool isNegative = at < end && *at == '-';
    if (at < end && (*at == '-' || *at == '+')) {
        ++at;
    }
    for (; isDigit(at, end); ++at) {
        if (digits.exponentCount < 4) {
            digits.exponent = digits.exponent * 10 + (*at - '0');
        }
        ++digits.exponentCount;
    }
    digits.exponent = isNegative ? -digits.exponent : digits.exponent;
}

JsonNumber ofInteger(qint64 integer)
{
    return {JsonNumber::Integer, integer, 0};
}

JsonNumber ofDouble(double number)
{
    // The bounds are the powers of two themselves: the largest integer is no double.
    constexpr double bound = 9223372036854775808.0;
    if (number >= -bound && number < bound) {
        const auto integer = static_cast<qint64>(number);
        if (static_cast<double>(integer) == number) {
            return ofInteger(integer);
        }
    }
    return {JsonNumber::Double, 0, number};
}

/// Every number, as the toolkit reads it.
JsonNumber readSlowly(const char *start, const char *end, bool isInteger)
{
    const QByteArray text = QByteArray::fromRawData(start, static_cast<int>(end - start));
    bool isRead = false;
    if (isInteger) {
        const qint64 integer = text.toLongLong(&isRead);
        if (isRead) {
            return ofInteger(integer);
        }
    }
    const double number = text.toDouble(&isRead);
    return isRead ? ofDouble(number) : JsonNumber();
}

/// The number, if one multiplication or division of doubles that are exact gives the nearest double.
bool readQuickly(const Digits &digits, JsonNumber &number)
{
    static constexpr std::array<double, 23> powers{1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    constexpr quint64 exactBound = quint64(1) << 53;
    const int power = digits.exponent - digits.fractionCount;
    const bool isExponentRead = !digits.hasExponent
                                || (digits.exponentCount > 0 && digits.exponentCount < 5);
    // A unit that computes with more digits than a double has would round twice.
    if (FLT_EVAL_METHOD != 0 || !isExponentRead || digits.count == 0 || digits.count > maximumCount
        || digits.all > exactBound || power < -22 || power > 22) {
        return false;
    }
    const auto whole = static_cast<double>(digits.all);
    const double size = power < 0 ? whole / powers[static_cast<std::size_t>(-power)]
                                  : whole * powers[static_cast<std::size_t>(power)];
    number = ofDouble(digits.isNegative ? -size : size);
    return true;
}

} // namespace

JsonNumber JsonNumber::read(const char *&at, const char *end)
{
    const char *const start = at;
    Digits digits;
    if (at < end && *at == '-') {
        digits.isNegative = true;
        ++at;
    }
    if (at < end && *at == '0') {
        addDigit(digits, *at++); // Nothing may follow a zero.
    } else {
        for (; isDigit(at, end); ++at) {
            addDigit(digits, *at);
        }
    }
    if (at < end && *at == '.') {
        readFraction(digits, at, end);
    }
    if (at < end && (*at == 'e' || *at == 'E')) {
        readExponent(digits, at, end);
    }
    const bool isInteger = digits.isFractionZero && !digits.hasExponent;
    if (isInteger && !digits.hasFraction && digits.count > 0 && digits.count <= maximumCount) {
        const auto size = static_cast<qint64>(digits.all);
        return ofInteger(digits.isNegative ? -size : size);
    }
    JsonNumber number;
    return readQuickly(digits, number) ? number : readSlowly(start, at, isInteger);
}
