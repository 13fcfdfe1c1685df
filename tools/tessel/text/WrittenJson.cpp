#include "text/WrittenJson.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cmath>

namespace {

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

/// Behind the text whose quotation mark stands at @p begin.
int endOfText(const QByteArray &json, int begin)
{
    int end = begin + 1;
    while (json.at(end) != '"') {
        end += json.at(end) == '\\' ? 2 : 1;
    }
    return end + 1;
}

/// Behind the number that begins at @p begin.
int endOfNumber(const QByteArray &json, int begin)
{
    const auto isPart = [](char character) {
        return isDigit(character) || character == '-' || character == '+' || character == '.'
               || character == 'e' || character == 'E';
    };
    return static_cast<int>(std::find_if_not(json.cbegin() + begin, json.cend(), isPart)
                            - json.cbegin());
}

/// -0, -0.0, -0e5: the toolkit keeps them as the integer 0.
bool isNegativeZero(const QByteArray &number)
{
    const auto isPartOfZero = [](char character) { return character == '0' || character == '.'; };
    const auto end = std::find_if_not(number.cbegin() + 1, number.cend(), isPartOfZero);
    return number.startsWith('-') && (end == number.cend() || *end == 'e' || *end == 'E');
}

bool losesDigits(const QByteArray &number)
{
    // Each whole number of so many digits has a double of its own.
    constexpr int exactDigits = 15;
    const int sign = number.startsWith('-') ? 1 : 0;
    if (std::all_of(number.cbegin() + sign, number.cend(), isDigit)) {
        return number.size() - sign > exactDigits;
    }
    // What is no whole number must not become one that an integer can be.
    constexpr double mostWhole = 18446744073709551616.0;
    const double rounded = number.toDouble();
    return std::abs(rounded) <= mostWhole && std::trunc(rounded) == rounded;
}

/// Without point and exponent where it is whole and may fit 64 bits; else as it is.
QByteArray asWhole(const QByteArray &number)
{
    constexpr int mostDigits = 20;
    const int sign = number.startsWith('-') ? 1 : 0;
    const int mark = number.toLower().indexOf('e');
    const QByteArray written = number.mid(sign, mark < 0 ? -1 : mark - sign);
    const int point = written.indexOf('.');
    QByteArray digits = QByteArray(written).replace(".", "");
    bool ok = mark < 0;
    qint64 power = ok ? 0 : number.mid(mark + 1).toInt(&ok);
    power -= point < 0 ? 0 : written.size() - point - 1;
    while (digits.endsWith('0')) {
        digits.chop(1);
        ++power;
    }
    while (digits.startsWith('0')) {
        digits.remove(0, 1);
    }
    if (digits.isEmpty()) {
        return "0";
    }
    return ok && power >= 0 && power + digits.size() <= mostDigits
               ? number.left(sign) + digits + QByteArray(static_cast<int>(power), '0')
               : number;
}

/// As the toolkit may read it.
QByteArray keptNumber(const QByteArray &number)
{
    if (isNegativeZero(number)) {
        return "\"-0\"";
    }
    const bool isPlain = std::all_of(number.cbegin() + 1, number.cend(), isDigit);
    const QByteArray whole = isPlain ? number : asWhole(number);
    return losesDigits(whole) ? '"' + whole + '"' : number;
}

QString decoded(const QByteArray &text)
{
    return QJsonDocument::fromJson('[' + text + ']').array().at(0).toString();
}

bool isKey(const QByteArray &json, int endOfText)
{
    const auto next = std::find_if_not(json.cbegin() + endOfText, json.cend(), [](char character) {
        return character == ' ' || character == '\t' || character == '\n' || character == '\r';
    });
    return next != json.cend() && *next == ':';
}

} // namespace

QByteArray WrittenJson::withEscapedMarks(QByteArray json)
{
    // It stands in texts alone.
    return json.replace("\xEF\xBB\xBF", "\\uFEFF");
}

QByteArray WrittenJson::withoutLosses(const QByteArray &json)
{
    QByteArray exact;
    exact.reserve(json.size());
    for (int i = 0; i < json.size();) {
        const char character = json.at(i);
        const bool isText = character == '"';
        const bool isNumber = isDigit(character) || character == '-';
        const int end = isText ? endOfText(json, i) : isNumber ? endOfNumber(json, i) : i + 1;
        QByteArray piece = json.mid(i, end - i);
        if (isText) {
            piece = withEscapedMarks(piece);
        } else if (isNumber) {
            piece = keptNumber(piece);
        }
        exact += piece;
        i = end;
    }
    return exact;
}

QStringList WrittenJson::repeatedKeys(const QByteArray &json)
{
    QStringList keys;
    int depth = 0;
    for (int i = 0; i < json.size();) {
        const char character = json.at(i);
        depth += character == '{' || character == '[' ? 1 : 0;
        depth -= character == '}' || character == ']' ? 1 : 0;
        const int end = character == '"' ? endOfText(json, i) : i + 1;
        if (character == '"' && depth == 1 && isKey(json, end)) {
            keys.append(decoded(json.mid(i, end - i)));
        }
        i = end;
    }
    std::sort(keys.begin(), keys.end());
    QStringList repeated;
    for (int i = 1; i < keys.size(); ++i) {
        if (keys[i] == keys[i - 1] && !repeated.contains(keys[i])) {
            repeated.append(keys[i]);
        }
    }
    return repeated;
}
