#include "Companion/ConvertInteger32Bit.h"
#include "Companion/IsoDateConverter.h"
#include "Companion/JsonReading.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "Companion/StringConversionsDefinitions.h"
#include "Companion/VEXOConvertDouble.h"
#include "FuzzTarget.h"
#include "ProcessData/ProcessValue.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>
#include <cstring>

// Numbers, points in time, states and cell URLs become text and come back as they were.
//
// An input is eight bytes of a number and then a text; a shorter one is filled up with zeros.

namespace {

using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::NamurStateTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

template <class Number>
Number numberOf(const QByteArray &input)
{
    Number number = 0;
    std::memcpy(&number, input.constData(),
                std::min(sizeof(number), static_cast<std::size_t>(input.size())));
    return number;
}

void checkDouble(double number)
{
    QString text;
    VEXOConvertDouble().doubleToString(number, text);
    if (!std::isfinite(number)) {
        require(text == "nan" || text == "inf" || text == "-inf", "no finite number has a name");
        return;
    }
    bool isNumber = false;
    require(text.toDouble(&isNumber) == number && isNumber, "text reads back as the same double");
}

void checkInteger(qint32 number)
{
    QString text;
    ConvertInteger32Bit().qint32ToString(number, text);
    bool isNumber = false;
    require(text.toInt(&isNumber) == number && isNumber, "text reads back as the same integer");
}

void checkJsonInteger(double number)
{
    int value = 7;
    const bool isRead = readIntegerValueFromJson("key", {{"key", number}}, value, 0);
    const bool fits = number >= -2147483648.0 && number <= 2147483647.0
                      && std::trunc(number) == number;
    require(isRead == fits, "an integer is read where a whole number fits");
    require(isRead ? value == number : value == 7, "the integer read is the one of the document");
}

void checkTime(qint64 milliseconds, int offset)
{
    // The text has room for whole minutes and the toolkit for 14 hours.
    const int minutes = offset % (14 * 60 + 1);
    const auto time = QDateTime::fromMSecsSinceEpoch(milliseconds, Qt::OffsetFromUTC, minutes * 60);
    const QString text = IsoDateConverter::convertDateTimeToIsoDateWithMsAndTimezone(time);
    if (text.isEmpty()) {
        return;
    }
    const QDateTime parsed = QDateTime::fromString(text, Qt::ISODateWithMs);
    require(parsed == time, "text parses back as the same time");
    require(parsed.offsetFromUtc() == time.offsetFromUtc(), "text names the offset of the time");
}

void checkState(const ProcessValue &value)
{
    const QString text = value.toString();
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): it is what is looked at.
    const ProcessValue copy = value;
    require(value == copy && !(value != copy), "a value equals its copy");
    require(value.toString() == text, "a value has one text");
    bool isDouble = false;
    bool isInt = false;
    const double number = value.toDouble(&isDouble);
    value.toFloat();
    value.toInt(&isInt);
    value.toBool();
    const bool isValid = value.getErrorType() == PROCESS_VALUE_ERROR_TYPE_VALID;
    require(isValid || (!isDouble && !isInt && number == 0), "an error comes without a number");
    getProcessValueStateTypeAsString(value.getErrorType());
}

/// A plain URL stays whole, and one with an index is the plain one, the row and the column.
void checkUrl(const QString &url)
{
    SelectorUrlArrayIndex index;
    QString rest;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, rest);
    const QString joined = rest + '#' + QString::number(index.getRowIndex()) + ','
                           + QString::number(index.getColumnIndex());
    require(index.isValid() ? joined == url && !rest.isEmpty() : rest == url,
            "a cell has one written form");
}

void checkCell(const QString &url, quint32 row, quint32 column)
{
    SelectorUrlArrayIndex index;
    QString rest;
    const QString cell = url + '#' + QString::number(row) + ',' + QString::number(column);
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(cell, index, rest);
    require(index.isValid() == !url.isEmpty(), "a URL with an index carries one");
    require(url.isEmpty()
                || (rest == url && index.getRowIndex() == row && index.getColumnIndex() == column),
            "an index reads back as it was written");
}

} // namespace

void runInput(const QByteArray &input)
{
    const auto bits = numberOf<quint64>(input);
    const auto low = static_cast<quint32>(bits);
    const auto high = static_cast<quint32>(bits >> 32);
    const auto number = numberOf<double>(input);
    const QString text = QString::fromUtf8(input.mid(8));
    const auto state = static_cast<ErrorTypes>(low);

    checkDouble(number);
    checkInteger(static_cast<qint32>(low));
    checkJsonInteger(number);
    checkJsonInteger(static_cast<qint32>(low));
    checkTime(static_cast<qint64>(bits), static_cast<qint16>(low));
    checkTime(static_cast<qint64>(bits >> 20), static_cast<qint16>(low));
    for (const QVariant &value : {QVariant(number), QVariant(bits), QVariant(text), QVariant()}) {
        checkState(ProcessValue(value, PROCESS_VALUE_ERROR_TYPE_VALID));
        checkState(ProcessValue(value, state));
    }
    getNamurStateTypeAsCharacter(static_cast<NamurStateTypes>(low));
    checkUrl(text);
    checkCell(text, low, high);
}
