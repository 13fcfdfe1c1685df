#include "Access/ProcessDataGuards.h"
#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "TesselModels/LeafWriting_p.h"
#include "TesselModels/ShortestText_p.h"

#include <cmath>
#include <limits>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using TesselModels::WriteError;

constexpr int bitsOfByte = 8;

std::optional<WriteProblem> wrongType(const QString &text)
{
    return WriteProblem{WriteError::WrongType, text};
}

bool isFloating(QMetaType::Type type)
{
    return type == QMetaType::Float || type == QMetaType::Double;
}

/// What a person would have typed. QML has no other numbers than doubles: 5.0 is a whole number there.
QString textOf(const QVariant &given, QMetaType::Type content)
{
    // Up to here each whole number is a double of its own.
    constexpr double mostExact = 9007199254740992.0;
    const auto type = static_cast<QMetaType::Type>(given.userType());
    if (!isFloating(type)) {
        return given.toString();
    }
    const double number = given.toDouble();
    if (!isFloating(content) && std::trunc(number) == number && std::abs(number) <= mostExact) {
        return QString::number(static_cast<qint64>(number));
    }
    return QString::number(number, 'g', std::numeric_limits<double>::max_digits10);
}

/// Decimal, or hexadecimal behind 0x; a number with a leading 0 is no octal one.
int baseOf(const QString &text)
{
    const QString digits = text.startsWith(QLatin1Char('-')) ? text.mid(1) : text;
    return digits.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) ? 16 : 10;
}

std::optional<qint64> signedNumber(const QString &text, quint32 bytes)
{
    bool ok = false;
    const qint64 number = text.toLongLong(&ok, baseOf(text));
    const quint32 bits = bytes * bitsOfByte;
    if (!ok || bits == 0 || bits >= 64) {
        return ok ? std::make_optional(number) : std::nullopt;
    }
    const qint64 most = (qint64(1) << (bits - 1)) - 1;
    return number >= -most - 1 && number <= most ? std::make_optional(number) : std::nullopt;
}

std::optional<quint64> unsignedNumber(const QString &text, quint32 bytes)
{
    bool ok = false;
    const quint64 number = text.toULongLong(&ok, baseOf(text));
    const quint32 bits = bytes * bitsOfByte;
    const bool fits = bits == 0 || bits >= 64 || number < (quint64(1) << bits);
    // The toolkit would take a minus sign and wrap the number around.
    return ok && fits && !text.startsWith(QLatin1Char('-')) ? std::make_optional(number)
                                                            : std::nullopt;
}

std::optional<QVariant> floatingNumber(const QString &text, bool isSingle)
{
    bool ok = false;
    const double number = text.toDouble(&ok);
    if (!ok || !std::isfinite(number)) {
        return std::nullopt;
    }
    if (!isSingle) {
        return number;
    }
    const auto single = static_cast<float>(number);
    const bool fits = std::isfinite(single) && (single != 0.0F || number == 0.0);
    return fits ? std::make_optional<QVariant>(single) : std::nullopt;
}

std::optional<QVariant> boolean(const QString &text)
{
    const QString word = text.toLower();
    if (word == QLatin1String("true") || word == QLatin1String("1")) {
        return true;
    }
    const bool isFalse = word == QLatin1String("false") || word == QLatin1String("0");
    return isFalse ? std::make_optional<QVariant>(false) : std::nullopt;
}

template <class Number>
std::optional<QVariant> asVariant(const std::optional<Number> &number)
{
    return number ? std::make_optional<QVariant>(*number) : std::nullopt;
}

bool isLess(const QVariant &left, const QVariant &right)
{
    if (isFloating(static_cast<QMetaType::Type>(left.userType()))) {
        return left.toDouble() < right.toDouble();
    }
    return left.userType() == QMetaType::ULongLong ? left.toULongLong() < right.toULongLong()
                                                   : left.toLongLong() < right.toLongLong();
}

/// Of a limit that is no number of the type there is nothing to hold to.
QVariant asTypeOf(const QVariant &value, QVariant limit)
{
    return limit.isValid() && limit.convert(value.userType()) ? limit : QVariant();
}

} // namespace

quint32 LeafWriting::slotNumber(const QString &key) const
{
    return element.getProperty(key).toUInt();
}

std::optional<WriteProblem> LeafWriting::convert(const QVariant &given, QVariant &value) const
{
    if (!given.isValid() || given.isNull() || !given.canConvert<QString>()) {
        return wrongType(QStringLiteral("what was given for '%1' is no value").arg(leaf.url));
    }
    const QString text = textOf(given, leaf.content);
    const quint32 bytes = slotNumber(Definitions::getKeyDataPropertySizeValue());
    std::optional<QVariant> content;
    switch (leaf.content) {
    case QMetaType::Bool: content = boolean(text); break;
    case QMetaType::Int:
    case QMetaType::LongLong: content = asVariant(signedNumber(text, bytes)); break;
    case QMetaType::UInt:
    case QMetaType::ULongLong: content = asVariant(unsignedNumber(text, bytes)); break;
    case QMetaType::Float: content = floatingNumber(text, true); break;
    case QMetaType::Double: content = floatingNumber(text, false); break;
    case QMetaType::QString: content = text; break;
    default: break;
    }
    if (!content) {
        return wrongType(
            QStringLiteral("'%1' is no %2 that '%3' can hold").arg(text, leaf.type, leaf.url));
    }
    value = *content;
    return std::nullopt;
}

std::optional<WriteProblem> LeafWriting::checkText(const QString &text) const
{
    if (text.contains(QChar::Null)) {
        return wrongType(QStringLiteral("a text ends where its first zero character is"));
    }
    // UTF-16 with a zero unit behind it.
    const int units = static_cast<int>(slotNumber(Definitions::getKeyDataPropertySizeValue())
                                       / sizeof(ushort));
    const int capacity = std::max(units - 1, 0);
    if (text.size() > capacity) {
        return wrongType(
            QStringLiteral("a text of %1 characters does not fit into '%2'; %3 do")
                .arg(QString::number(text.size()), leaf.url, QString::number(capacity)));
    }
    return std::nullopt;
}

std::optional<WriteProblem> LeafWriting::checkLimits(const QVariant &value) const
{
    const QVariant least = asTypeOf(value, leaf.minimum);
    if (least.isValid() && isLess(value, least)) {
        return WriteProblem{WriteError::OutOfRange,
                            QStringLiteral("%1 is below the lower limit of '%2', %3")
                                .arg(shortestTextOf(value), leaf.url, shortestTextOf(least))};
    }
    const QVariant most = asTypeOf(value, leaf.maximum);
    if (most.isValid() && isLess(most, value)) {
        return WriteProblem{WriteError::OutOfRange,
                            QStringLiteral("%1 is above the upper limit of '%2', %3")
                                .arg(shortestTextOf(value), leaf.url, shortestTextOf(most))};
    }
    return std::nullopt;
}

std::optional<WriteProblem> LeafWriting::check(const QVariant &value) const
{
    if (leaf.content == QMetaType::QString) {
        return checkText(value.toString());
    }
    if (leaf.content == QMetaType::Bool) {
        const quint32 mask = slotNumber(Definitions::getKeyDataPropertyBitmask());
        return leaf.type != Definitions::getKeyDataTypeBoolean() && (mask & 0xFFU) == 0
                   ? wrongType(
                       QStringLiteral("the mask of '%1' names no bit of its byte").arg(leaf.url))
                   : std::nullopt;
    }
    const bool hasState = slotNumber(Definitions::getKeyDataPropertySizeMetadata()) != 0;
    if (leaf.content == QMetaType::Float && !hasState
        && ProcessValueErrorTypeMapDefinitions::getMapFloatValueToStateType().contains(
            value.toFloat())) {
        return wrongType(QStringLiteral("%1 would read back as an error state, which the slot of "
                                        "'%2' keeps in the number")
                             .arg(shortestTextOf(value), leaf.url));
    }
    return checkLimits(value);
}

std::optional<WriteProblem> LeafWriting::publish(ProcessDataManager &manager,
                                                 const QVariant &given) const
{
    if (leaf.isReadOnly) {
        return WriteProblem{WriteError::ReadOnly,
                            QStringLiteral("'%1' is read-only; only the process that created the "
                                           "region writes it")
                                .arg(leaf.url)};
    }
    QVariant value;
    if (const auto problem = convert(given, value)) {
        return problem;
    }
    if (const auto problem = check(value)) {
        return problem;
    }
    const ProcessDataWriteGuard guard(manager);
    if (!guard.isLocked()) {
        return WriteProblem{WriteError::NotPublished,
                            QStringLiteral("'%1': no lock on the region was to be had; a writer "
                                           "stands still inside, 'tessel info' tells which")
                                .arg(leaf.url)};
    }
    ProcessValue former(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    element.getValueNoLock(former);
    const ProcessValue wanted(value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    if (!element.setValueNoLock(wanted)) {
        return WriteProblem{
            WriteError::NotPublished,
            QStringLiteral("'%1' was not written; the log has the reason").arg(leaf.url)};
    }
    // Inside the lock: what is not published is taken back before anybody's next set takes it along.
    if (!manager.swapReadAndWriteBuffer()) {
        element.setValueNoLock(former);
        return WriteProblem{
            WriteError::NotPublished,
            QStringLiteral("'%1' was not published; the log has the reason").arg(leaf.url)};
    }
    return std::nullopt;
}
