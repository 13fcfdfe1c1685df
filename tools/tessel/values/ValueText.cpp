#include "values/ValueText.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "ProcessData/ProcessValueErrorTypes.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "values/StateName.h"

#include <QByteArray>

#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace {

[[noreturn]] void refuse(const QString &url, const QString &reason)
{
    throw Failure{ExitCode::Refused, QStringLiteral("'%1': %2").arg(url, reason)};
}

/// The shortest text that reads back as the same number.
template <class Number>
QString shortest(Number number)
{
    std::array<char, 32> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return QString::fromLatin1(text.data(), static_cast<int>(end - text.data()));
}

QString floatingText(double number, bool isSingle, int digits)
{
    if (std::isnan(number)) {
        return QStringLiteral("nan");
    }
    if (std::isinf(number)) {
        return number < 0 ? QStringLiteral("-inf") : QStringLiteral("inf");
    }
    if (digits > 0) {
        return QString::number(number, 'g', digits);
    }
    return isSingle ? shortest(static_cast<float>(number)) : shortest(number);
}

QString contentText(const QVariant &content, int digits)
{
    const int type = content.userType();
    if (type == QMetaType::Float || type == QMetaType::Double) {
        return floatingText(content.toDouble(), type == QMetaType::Float, digits);
    }
    return content.toString();
}

bool isErroneous(const ProcessValue &value)
{
    return value.getErrorType() != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
           || !value.getValue().isValid();
}

/// Decimal, or hexadecimal behind 0x; a number with a leading 0 is no octal one.
int baseOf(const QString &text)
{
    const QString digits = text.startsWith(QLatin1Char('-')) ? text.mid(1) : text;
    return digits.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) ? 16 : 10;
}

QVariant signedFromText(const QString &text, const LeafSlot &slot, const QString &url)
{
    const int bits = static_cast<int>(slot.size) * 8;
    const qint64 most = bits >= 64 ? std::numeric_limits<qint64>::max()
                                   : (qint64(1) << (bits - 1)) - 1;
    const qint64 least = -most - 1;
    bool ok = false;
    const qint64 number = text.toLongLong(&ok, baseOf(text));
    if (!ok || number < least || number > most) {
        refuse(url, QStringLiteral("'%1' is no %2; a whole number from %3 to %4 is")
                        .arg(text, slot.type, QString::number(least), QString::number(most)));
    }
    return number;
}

QVariant unsignedFromText(const QString &text, const LeafSlot &slot, const QString &url)
{
    const int bits = static_cast<int>(slot.size) * 8;
    const quint64 most = bits >= 64 ? std::numeric_limits<quint64>::max()
                                    : (quint64(1) << bits) - 1;
    bool ok = false;
    // The toolkit would take a minus sign and wrap the number around.
    const quint64 number = text.toULongLong(&ok, baseOf(text));
    if (!ok || text.startsWith(QLatin1Char('-')) || number > most) {
        refuse(url, QStringLiteral("'%1' is no %2; a whole number from 0 to %3 is")
                        .arg(text, slot.type, QString::number(most)));
    }
    return number;
}

QVariant doubleFromText(const QString &text, const LeafSlot &slot, const QString &url)
{
    bool ok = false;
    const double number = text.toDouble(&ok);
    if (!ok || !std::isfinite(number)) {
        refuse(url, QStringLiteral("'%1' is no finite number of type %2; an error state is written "
                                   "with --error")
                        .arg(text, slot.type));
    }
    return number;
}

QVariant floatFromText(const QString &text, const LeafSlot &slot, const QString &url)
{
    const double number = doubleFromText(text, slot, url).toDouble();
    const auto single = static_cast<float>(number);
    if (!std::isfinite(single) || (single == 0.0F && number != 0.0)) {
        refuse(url, QStringLiteral("'%1' does not fit a float").arg(text));
    }
    const auto &states = ProcessValueErrorTypeMapDefinitions::getMapFloatValueToStateType();
    if (!slot.hasMetadata() && states.contains(single)) {
        refuse(url, QStringLiteral("'%1' would read back as an error state, which this slot keeps "
                                   "in the number")
                        .arg(text));
    }
    return single;
}

QVariant boolFromText(const QString &text, const LeafSlot &slot, const QString &url)
{
    const QString word = text.toLower();
    const bool isTrue = word == QLatin1String("true") || word == QLatin1String("1");
    if (!isTrue && word != QLatin1String("false") && word != QLatin1String("0")) {
        refuse(url, QStringLiteral("'%1' is no %2; true, false, 1 and 0 are").arg(text, slot.type));
    }
    if (slot.isBit() && (slot.bitmask & 0xFFU) == 0) {
        refuse(url, QStringLiteral("the mask of this bit names no bit of its byte"));
    }
    return isTrue;
}

QVariant stringFromText(const QString &text, const LeafSlot &slot, const QString &url)
{
    const int capacity = static_cast<int>(slot.size / 2) - 1;
    if (text.size() > capacity) {
        refuse(url, QStringLiteral("a text of %1 characters does not fit; %2 do")
                        .arg(text.size())
                        .arg(std::max(capacity, 0)));
    }
    return text;
}

} // namespace

QString valueText(const ProcessValue &value)
{
    return isErroneous(value) ? QString() : contentText(value.getValue(), 0);
}

QString shortValueText(const ProcessValue &value)
{
    constexpr int digitsForTheEye = 6;
    return isErroneous(value) ? QString() : contentText(value.getValue(), digitsForTheEye);
}

QString valueJson(const ProcessValue &value)
{
    if (isErroneous(value)) {
        return QStringLiteral("null");
    }
    const QVariant &content = value.getValue();
    const bool isFloating = content.userType() == QMetaType::Float
                            || content.userType() == QMetaType::Double;
    const bool isText = content.userType() == QMetaType::QString
                        || (isFloating && !std::isfinite(content.toDouble()));
    const QString text = contentText(content, 0);
    return isText ? jsonString(text) : text;
}

QString leafJson(const Leaf &leaf, const ProcessValue &value)
{
    using Definitions = ConfigurationAndProcessDataDefinitions;
    const ProcessDataDefinitions::ErrorTypes state = value.getErrorType();
    return jsonObject({
        {QStringLiteral("url"), jsonString(leaf.url)},
        {QStringLiteral("value"), valueJson(value)},
        {QStringLiteral("state"), QString::number(static_cast<int>(state))},
        {QStringLiteral("stateName"), jsonString(stateName(state))},
        {QStringLiteral("unit"),
         jsonString(textProperty(leaf, Definitions::getKeyDataPropertyUnit()))},
        {QStringLiteral("type"),
         jsonString(textProperty(leaf, Definitions::getKeyDataPropertyType()))},
    });
}

QString nestedJson(const QVariant &value)
{
    if (value.userType() == QMetaType::QVariantList) {
        QStringList items;
        const QVariantList list = value.toList();
        for (const QVariant &item : list) {
            items.append(nestedJson(item));
        }
        return QLatin1Char('[') + items.join(QStringLiteral(", ")) + QLatin1Char(']');
    }
    if (value.userType() == QMetaType::QVariantMap) {
        QVector<QPair<QString, QString>> members;
        const QVariantMap map = value.toMap();
        for (auto member = map.cbegin(); member != map.cend(); ++member) {
            members.append({member.key(), nestedJson(member.value())});
        }
        return jsonObject(members);
    }
    // The empty text is no missing value.
    if (value.isNull() && value.userType() != QMetaType::QString) {
        return QStringLiteral("null");
    }
    return valueJson({value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID});
}

QVariant valueFromText(const QString &text, const LeafSlot &slot, const QString &url)
{
    switch (slot.metaType) {
    case QMetaType::Bool: return boolFromText(text, slot, url);
    case QMetaType::Int:
    case QMetaType::LongLong: return signedFromText(text, slot, url);
    case QMetaType::UInt:
    case QMetaType::ULongLong: return unsignedFromText(text, slot, url);
    case QMetaType::Float: return floatFromText(text, slot, url);
    case QMetaType::Double: return doubleFromText(text, slot, url);
    case QMetaType::QString: return stringFromText(text, slot, url);
    default: refuse(url, QStringLiteral("no value can be given to type '%1'").arg(slot.type));
    }
}
