#include "simulation/ValueRange.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "values/ValueText.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

template <class Number>
struct Bounds
{
    Number least;
    Number most;

    bool isRising() const { return least <= most; }
};

enum class Rounding { Up, Down };

template <class Number>
Number wholeIn(double number, Rounding rounding, const Bounds<Number> &type)
{
    const double whole = rounding == Rounding::Up ? std::ceil(number) : std::floor(number);
    // As a double the greatest number is one that the type has no room for.
    if (!(whole > static_cast<double>(type.least))) {
        return type.least;
    }
    return whole >= static_cast<double>(type.most) ? type.most : static_cast<Number>(whole);
}

/// A number of a description as one of the type, the nearest that there is.
qint64 numberIn(const QVariant &number, Rounding rounding, const Bounds<qint64> &type)
{
    if (number.userType() == QMetaType::Double || number.userType() == QMetaType::Float) {
        return wholeIn(number.toDouble(), rounding, type);
    }
    if (number.userType() == QMetaType::ULongLong
        && number.toULongLong() > static_cast<quint64>(type.most)) {
        return type.most;
    }
    return qBound(type.least, number.toLongLong(), type.most);
}

quint64 numberIn(const QVariant &number, Rounding rounding, const Bounds<quint64> &type)
{
    if (number.userType() == QMetaType::Double || number.userType() == QMetaType::Float) {
        return wholeIn(number.toDouble(), rounding, type);
    }
    if (number.userType() != QMetaType::ULongLong && number.toLongLong() < 0) {
        return type.least;
    }
    return qBound(type.least, number.toULongLong(), type.most);
}

double numberIn(const QVariant &number, Rounding /*rounding*/, const Bounds<double> &type)
{
    return qBound(type.least, number.toDouble(), type.most);
}

/// A text that stands for a number, as one of 64 bits does, as what it says.
QVariant numberOf(const QVariant &property)
{
    if (property.userType() != QMetaType::QString) {
        return property;
    }
    bool isWhole = false;
    const QString text = property.toString();
    const qint64 whole = text.toLongLong(&isWhole);
    if (isWhole) {
        return whole;
    }
    const quint64 large = text.toULongLong(&isWhole);
    return isWhole ? QVariant(large) : QVariant(text.toDouble());
}

/// The number under a key; invalid if there is none.
QVariant propertyOf(const Leaf &leaf, const QString &key)
{
    const QVariant property = leaf.element->getProperty(key);
    return !property.isNull() && property.canConvert<double>() ? numberOf(property) : QVariant();
}

/// Has room for whole numbers of 64 bits, and for doubles.
long double exactOf(const QVariant &number)
{
    switch (number.userType()) {
    case QMetaType::Double:
    case QMetaType::Float: return number.toDouble();
    case QMetaType::ULongLong: return static_cast<long double>(number.toULongLong());
    default: return static_cast<long double>(number.toLongLong());
    }
}

/// As much of @p width as there is room for behind @p begin.
template <class Number>
Number above(Number begin, Number width, Number most)
{
    return begin > most - width ? most : begin + width;
}

template <class Number>
Number below(Number end, Number width, Number least)
{
    return end < least + width ? least : end - width;
}

template <class Number>
std::optional<Bounds<Number>> viewOf(const Leaf &leaf, const Bounds<Number> &limits,
                                     const Bounds<Number> &type)
{
    const QVariant start = propertyOf(leaf, Definitions::getKeyDataPropertyViewStart());
    const QVariant end = propertyOf(leaf, Definitions::getKeyDataPropertyViewEnd());
    if (!start.isValid() || !end.isValid()) {
        return {};
    }
    const Bounds<Number> seen{std::max(limits.least, numberIn(start, Rounding::Up, type)),
                              std::min(limits.most, numberIn(end, Rounding::Down, type))};
    // What cannot be seen within the limits leaves the limits alone.
    return seen.least < seen.most ? std::make_optional(seen) : std::nullopt;
}

template <class Number>
Bounds<Number> boundsOf(const Leaf &leaf, const Bounds<Number> &type, Number usualWidth)
{
    QVariant least = propertyOf(leaf, Definitions::getKeyDataPropertyMinLimit());
    QVariant most = propertyOf(leaf, Definitions::getKeyDataPropertyMaxLimit());
    // Nothing would be left of the type.
    if (least.isValid() && exactOf(least) > static_cast<long double>(type.most)) {
        least = QVariant();
    }
    if (most.isValid() && exactOf(most) < static_cast<long double>(type.least)) {
        most = QVariant();
    }
    Bounds<Number> limits{least.isValid() ? numberIn(least, Rounding::Up, type) : type.least,
                          most.isValid() ? numberIn(most, Rounding::Down, type) : type.most};
    if (!limits.isRising() && std::is_unsigned_v<Number> && limits.least > type.most / 2) {
        // A negative number, which its type has turned into one near the upper end.
        limits.least = type.least;
        least = QVariant();
    }
    if (!limits.isRising()) {
        limits = type;
        least = most = QVariant();
    }
    if (const auto view = viewOf(leaf, limits, type)) {
        return *view;
    }
    if (least.isValid() && most.isValid()) {
        return limits;
    }
    if (least.isValid()) {
        return {limits.least, above(limits.least, usualWidth, limits.most)};
    }
    if (most.isValid()) {
        return {below(limits.most, usualWidth, limits.least), limits.most};
    }
    return {Number(0), above(Number(0), usualWidth, type.most)};
}

template <class Number>
std::optional<ValueRange> rangeWithin(const Leaf &leaf, const Bounds<Number> &type,
                                      Number usualWidth)
{
    const Bounds<Number> bounds = boundsOf(leaf, type, usualWidth);
    return ValueRange{bounds.least, bounds.most};
}

std::optional<ValueRange> selectorRange(const Leaf &leaf, const Bounds<qint64> &type)
{
    const int entries =
        leaf.element->getProperty(QStringLiteral("selectionList")).toStringList().size();
    if (entries == 0) {
        constexpr qint64 fewEntries = 3;
        return rangeWithin<qint64>(leaf, {0, type.most}, fewEntries);
    }
    return rangeWithin<qint64>(leaf, {0, entries - 1}, entries - 1);
}

std::optional<ValueRange> signedRange(const Leaf &leaf, const LeafSlot &slot)
{
    constexpr int bitsOfByte = 8;
    constexpr qint64 usualWidth = 100;
    const int unused = 64 - static_cast<int>(std::min(slot.size, 8U)) * bitsOfByte;
    const qint64 most = std::numeric_limits<qint64>::max() >> std::min(unused, 56);
    return ConfigurationAndProcessDataTools::isSelectorType(slot.type)
               ? selectorRange(leaf, {-most - 1, most})
               : rangeWithin<qint64>(leaf, {-most - 1, most}, usualWidth);
}

std::optional<ValueRange> unsignedRange(const Leaf &leaf, const LeafSlot &slot)
{
    constexpr int bitsOfByte = 8;
    constexpr quint64 usualWidth = 100;
    const int unused = 64 - static_cast<int>(std::min(slot.size, 8U)) * bitsOfByte;
    const quint64 most = std::numeric_limits<quint64>::max() >> std::min(unused, 56);
    return rangeWithin<quint64>(leaf, {0, most}, usualWidth);
}

std::optional<ValueRange> floatingRange(const Leaf &leaf, double most)
{
    constexpr double usualWidth = 100;
    return rangeWithin<double>(leaf, {-most, most}, usualWidth);
}

/// A part of a number of 64 bits, of which a double loses the last ones.
quint64 partOf(quint64 span, double fraction)
{
    const long double part = static_cast<long double>(span) * fraction;
    return part >= static_cast<long double>(span) ? span : static_cast<quint64>(std::round(part));
}

QString textOf(const QVariant &number)
{
    return shortValueText({number, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID});
}

} // namespace

QString ValueRange::leastText() const
{
    return textOf(least);
}

QString ValueRange::mostText() const
{
    return textOf(most);
}

QVariant ValueRange::at(double fraction) const
{
    const double way = qBound(0.0, fraction, 1.0);
    if (least.userType() == QMetaType::Double) {
        // The difference of the two may be too large for a double.
        const double number = least.toDouble() * (1 - way) + most.toDouble() * way;
        return qBound(least.toDouble(), number, most.toDouble());
    }
    if (least.userType() == QMetaType::ULongLong) {
        const quint64 begin = least.toULongLong();
        return begin + partOf(most.toULongLong() - begin, way);
    }
    const auto begin = static_cast<quint64>(least.toLongLong());
    const quint64 span = static_cast<quint64>(most.toLongLong()) - begin;
    return static_cast<qint64>(begin + partOf(span, way));
}

std::optional<ValueRange> rangeOf(const Leaf &leaf)
{
    const LeafSlot slot = slotOf(leaf);
    switch (slot.metaType) {
    case QMetaType::Int:
    case QMetaType::LongLong: return signedRange(leaf, slot);
    case QMetaType::UInt:
    case QMetaType::ULongLong: return unsignedRange(leaf, slot);
    case QMetaType::Float: return floatingRange(leaf, std::numeric_limits<float>::max());
    case QMetaType::Double: return floatingRange(leaf, std::numeric_limits<double>::max());
    default: return {};
    }
}
