#include "leaves/TypedValue.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

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

TypedValue noWholeNumber(const WritableSlot &slot, const QString &text, const QString &least,
                         const QString &most)
{
    return refused(QStringLiteral("'%1' is no %2; a whole number from %3 to %4 is")
                       .arg(text, slot.type, least, most));
}

TypedValue signedValue(const WritableSlot &slot, const QString &text)
{
    const auto range = NumberRange<qint64>::ofBytes(slot.size);
    bool ok = false;
    const qint64 number = text.toLongLong(&ok, baseOf(text));
    return ok && range.has(number) ? TypedValue{number, {}}
                                   : noWholeNumber(slot, text, QString::number(range.least),
                                                   QString::number(range.most));
}

TypedValue unsignedValue(const WritableSlot &slot, const QString &text)
{
    const auto range = NumberRange<quint64>::ofBytes(slot.size);
    bool ok = false;
    // The toolkit would take a minus sign and wrap the number around.
    const quint64 number = text.toULongLong(&ok, baseOf(text));
    return ok && !text.startsWith(QLatin1Char('-')) && range.has(number)
               ? TypedValue{number, {}}
               : noWholeNumber(slot, text, QString::number(range.least),
                               QString::number(range.most));
}

TypedValue doubleValue(const WritableSlot &slot, const QString &text, const QString &errorState)
{
    bool ok = false;
    const double number = text.toDouble(&ok);
    if (ok && std::isfinite(number)) {
        return {number, {}};
    }
    const QString told = QStringLiteral("'%1' is no finite number of type %2").arg(text, slot.type);
    return refused(errorState.isEmpty()
                       ? told
                       : told + QStringLiteral("; an error state is written ") + errorState);
}

TypedValue floatValue(const WritableSlot &slot, const QString &text, const QString &errorState)
{
    const TypedValue wide = doubleValue(slot, text, errorState);
    if (!wide.problem.isEmpty()) {
        return wide;
    }
    const auto single = static_cast<float>(wide.value.toDouble());
    return !std::isfinite(single) || (single == 0.0F && wide.value.toDouble() != 0.0)
               ? refused(QStringLiteral("'%1' does not fit a float").arg(text))
               : TypedValue{single, {}};
}

TypedValue booleanValue(const WritableSlot &slot, const QString &text)
{
    const QString word = text.toLower();
    const bool isTrue = word == QLatin1String("true") || word == QLatin1String("1");
    const bool isFalse = word == QLatin1String("false") || word == QLatin1String("0");
    return isTrue || isFalse
               ? TypedValue{isTrue, {}}
               : refused(
                   QStringLiteral("'%1' is no %2; true, false, 1 and 0 are").arg(text, slot.type));
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
    const int exponent = ok ? 0 : text.midRef(mark + 1).toInt(&ok);
    const qint64 power = qint64{exponent} + zeros - (point < 0 ? 0 : written.size() - point - 1);
    if (!ok || power < 0 || power + digits.size() > mostDigits) {
        return std::nullopt;
    }
    return text.left(sign) + digits + QString(static_cast<int>(power), QLatin1Char('0'));
}

} // namespace

TypedValue TypedValue::fromText(const WritableSlot &slot, const QString &text,
                                const QString &errorState)
{
    switch (slot.metaType) {
    case QMetaType::Bool: return booleanValue(slot, text);
    case QMetaType::Int:
    case QMetaType::LongLong: return signedValue(slot, text);
    case QMetaType::UInt:
    case QMetaType::ULongLong: return unsignedValue(slot, text);
    case QMetaType::Float: return floatValue(slot, text, errorState);
    case QMetaType::Double: return doubleValue(slot, text, errorState);
    case QMetaType::QString: return {text, {}};
    default: return refused(QStringLiteral("no value can be given to type '%1'").arg(slot.type));
    }
}

TypedValue TypedValue::fromJsonNumber(const WritableSlot &slot, const QString &text,
                                      const QString &errorState)
{
    const bool isFloating = slot.metaType == QMetaType::Float || slot.metaType == QMetaType::Double;
    return fromText(slot, isFloating ? text : wholeDigits(text).value_or(text), errorState);
}
