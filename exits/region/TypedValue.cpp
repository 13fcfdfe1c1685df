#include "region/TypedValue.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

TypedValue refused(const QString &problem)
{
    return {{}, problem};
}

/// Decimal, or hexadecimal behind 0x; a number with a leading 0 is no octal one.
int baseOf(const QString &text)
{
    const QString digits = text.startsWith(QLatin1Char('-')) ? text.mid(1) : text;
    return digits.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) ? 16 : 10;
}

bool isNoZero(QChar digit)
{
    return digit != QLatin1Char('0');
}

int bitsOf(const FollowedLeaf &leaf)
{
    constexpr int bitsOfByte = 8;
    return leaf.element->getProperty(Definitions::getKeyDataPropertySizeValue()).toInt()
           * bitsOfByte;
}

TypedValue signedValue(const FollowedLeaf &leaf, const QString &text)
{
    const int bits = bitsOf(leaf);
    const qint64 most = bits >= 64 || bits < 1 ? std::numeric_limits<qint64>::max()
                                               : (qint64(1) << (bits - 1)) - 1;
    const qint64 least = -most - 1;
    bool ok = false;
    const qint64 number = text.toLongLong(&ok, baseOf(text));
    return ok && number >= least && number <= most
               ? TypedValue{number, {}}
               : refused(QStringLiteral("'%1' is no %2; a whole number from %3 to %4 is")
                             .arg(text, leaf.type, QString::number(least), QString::number(most)));
}

TypedValue unsignedValue(const FollowedLeaf &leaf, const QString &text)
{
    const int bits = bitsOf(leaf);
    const quint64 most = bits >= 64 || bits < 1 ? std::numeric_limits<quint64>::max()
                                                : (quint64(1) << bits) - 1;
    bool ok = false;
    // The toolkit would take a minus sign and wrap the number around.
    const quint64 number = text.toULongLong(&ok, baseOf(text));
    return ok && !text.startsWith(QLatin1Char('-')) && number <= most
               ? TypedValue{number, {}}
               : refused(QStringLiteral("'%1' is no %2; a whole number from 0 to %3 is")
                             .arg(text, leaf.type, QString::number(most)));
}

TypedValue floatingValue(const FollowedLeaf &leaf, const QString &text, bool isSingle)
{
    bool ok = false;
    const double number = text.toDouble(&ok);
    if (!ok || !std::isfinite(number)) {
        return refused(QStringLiteral("'%1' is no finite number of type %2; an error state is "
                                      "written as {\"state\": NAME}")
                           .arg(text, leaf.type));
    }
    if (!isSingle) {
        return {number, {}};
    }
    const auto single = static_cast<float>(number);
    return !std::isfinite(single) || (single == 0.0F && number != 0.0)
               ? refused(QStringLiteral("'%1' does not fit a float").arg(text))
               : TypedValue{single, {}};
}

TypedValue booleanValue(const FollowedLeaf &leaf, const QString &text)
{
    const QString word = text.toLower();
    const bool isTrue = word == QLatin1String("true") || word == QLatin1String("1");
    const bool isFalse = word == QLatin1String("false") || word == QLatin1String("0");
    return isTrue || isFalse
               ? TypedValue{isTrue, {}}
               : refused(
                   QStringLiteral("'%1' is no %2; true, false, 1 and 0 are").arg(text, leaf.type));
}

/// The number of JSON @p text without point and exponent, if it is whole and may fit 64 bits.
std::optional<QString> wholeDigits(const QString &text)
{
    constexpr int mostDigits = 20;
    const int sign = text.startsWith(QLatin1Char('-')) ? 1 : 0;
    const int mark = text.indexOf(QLatin1Char('e'), 0, Qt::CaseInsensitive);
    const QString written = text.mid(sign, mark < 0 ? -1 : mark - sign);
    const int point = written.indexOf(QLatin1Char('.'));
    const QString all = QString(written).remove(QLatin1Char('.'));
    const auto first = std::find_if(all.cbegin(), all.cend(), isNoZero);
    const auto last = std::find_if(all.crbegin(), all.crend(), isNoZero);
    if (first == all.cend()) {
        return text.left(sign) + QLatin1Char('0');
    }
    const int zeros = static_cast<int>(last - all.crbegin());
    const QString digits = all.mid(static_cast<int>(first - all.cbegin())).chopped(zeros);
    bool ok = mark < 0;
    const int exponent = ok ? 0 : text.mid(mark + 1).toInt(&ok);
    const qint64 power = qint64{exponent} + zeros - (point < 0 ? 0 : written.size() - point - 1);
    if (!ok || power < 0 || power + digits.size() > mostDigits) {
        return std::nullopt;
    }
    return text.left(sign) + digits + QString(static_cast<int>(power), QLatin1Char('0'));
}

QMetaType::Type metaTypeOf(const FollowedLeaf &leaf)
{
    return Definitions::getBasicDataTypeMapForProcessData().value(leaf.type,
                                                                  QMetaType::UnknownType);
}

} // namespace

TypedValue TypedValue::fromText(const FollowedLeaf &leaf, const QString &text)
{
    switch (metaTypeOf(leaf)) {
    case QMetaType::Bool: return booleanValue(leaf, text);
    case QMetaType::Int:
    case QMetaType::LongLong: return signedValue(leaf, text);
    case QMetaType::UInt:
    case QMetaType::ULongLong: return unsignedValue(leaf, text);
    case QMetaType::Float: return floatingValue(leaf, text, true);
    case QMetaType::Double: return floatingValue(leaf, text, false);
    case QMetaType::QString: return {text, {}};
    default: return refused(QStringLiteral("no value can be given to type '%1'").arg(leaf.type));
    }
}

TypedValue TypedValue::fromJsonNumber(const FollowedLeaf &leaf, const QString &text)
{
    const QMetaType::Type type = metaTypeOf(leaf);
    const bool isFloating = type == QMetaType::Float || type == QMetaType::Double;
    return fromText(leaf, isFloating ? text : wholeDigits(text).value_or(text));
}
