#include "Validation/DocumentRules_p.h"
#include "Validation/ValuePattern_p.h"
#include "Validation/ValueRules_p.h"
#include "Validation/ValueShown_p.h"

#include <cmath>
#include <limits>

namespace {

using Held = ValueRules::Held;
using Key = DescribedKey;
using Limits = ValueRules::Limits;
using Kind = JsonText::Kind;
using Value = JsonText::Value;

/// How well what a leaf holds says what is written.
enum class Likeness {
    Same,
    OtherType, ///< the same in another JSON type
    Other
};

bool isSigned(int metaType)
{
    return metaType == QMetaType::Int || metaType == QMetaType::LongLong;
}

bool isWhole(int metaType)
{
    return isSigned(metaType) || metaType == QMetaType::UInt || metaType == QMetaType::ULongLong;
}

bool isWide(int metaType)
{
    return metaType == QMetaType::LongLong || metaType == QMetaType::ULongLong;
}

Likeness likenessOfText(const DescribedType &type, const Value &written, const QVariant &value)
{
    if (type.isText) {
        return Likeness::Same;
    }
    const QString text = written.toString();
    if (type.metaType == QMetaType::Bool) {
        const QString lower = text.toLower();
        const bool isWord = lower == QLatin1String("true") || lower == QLatin1String("false")
                            || lower == QLatin1String("1") || lower == QLatin1String("0");
        return isWord ? Likeness::OtherType : Likeness::Other;
    }
    // The written form of numbers that JSON's own cannot hold.
    return isWide(type.metaType) && text == value.toString() ? Likeness::Same : Likeness::OtherType;
}

Likeness likenessOfInteger(const DescribedType &type, qint64 written, const QVariant &value)
{
    if (type.isText) {
        return Likeness::OtherType;
    }
    if (type.metaType == QMetaType::Bool) {
        return written == 0 || written == 1 ? Likeness::OtherType : Likeness::Other;
    }
    if (!isWhole(type.metaType)) {
        return Likeness::Same; // A float rounds as everybody expects.
    }
    const bool isSame = isSigned(type.metaType)
                            ? value.toLongLong() == written
                            : written >= 0 && value.toULongLong() == quint64(written);
    return isSame ? Likeness::Same : Likeness::Other;
}

Likeness likenessOfDouble(const DescribedType &type, double written, const QVariant &value)
{
    if (type.isText) {
        return Likeness::OtherType;
    }
    if (type.metaType == QMetaType::Float) {
        // It rounds, but neither to nothing nor beyond all numbers.
        const float held = value.toFloat();
        const bool isLost = std::isinf(held) || (held == 0.0F && written != 0.0);
        return isLost ? Likeness::Other : Likeness::Same;
    }
    return type.metaType == QMetaType::Double ? Likeness::Same : Likeness::Other;
}

Likeness likeness(const DescribedType &type, const Value &written, const QVariant &value)
{
    switch (written.kind()) {
    case Kind::Text: return likenessOfText(type, written, value);
    case Kind::Integer: return likenessOfInteger(type, written.toInteger(), value);
    case Kind::Double: return likenessOfDouble(type, written.toDouble(), value);
    case Kind::Bool: return type.metaType == QMetaType::Bool ? Likeness::Same : Likeness::OtherType;
    default: return Likeness::Same;
    }
}

/// Whether a whole number fits the bytes of its type, which may be fewer than those in which it is held.
bool isInRange(const DescribedType &type, const QVariant &value)
{
    const int bits = type.slotSize * 8;
    if (!isWhole(type.metaType) || type.isSelector || bits == 0 || bits > 16) {
        return true;
    }
    const qint64 number = value.toLongLong();
    const qint64 most = (qint64(1) << (isSigned(type.metaType) ? bits - 1 : bits)) - 1;
    return number <= most && number >= (isSigned(type.metaType) ? -most - 1 : 0);
}

bool isBelow(const DescribedType &type, const QVariant &left, const QVariant &right)
{
    if (type.metaType == QMetaType::ULongLong) {
        return left.toULongLong() < right.toULongLong();
    }
    return isWhole(type.metaType) ? left.toLongLong() < right.toLongLong()
                                  : left.toDouble() < right.toDouble();
}

/// The value or limit under @p key, if it is one that can be compared.
Held checkedValue(const CheckedElement &leaf, Key key)
{
    const Value &written = leaf.value(key);
    if (!written.isValid()) {
        return {};
    }
    const QString what = QLatin1Char('\'') + textOf(key) + QLatin1Char('\'');
    if (!ValueRules::checkHeld(leaf.file(), leaf.url(), leaf.typeName(), leaf.type(), written,
                               what)) {
        return {};
    }
    const Held held = ValueRules::held(leaf.type(), written);
    return held.isNoInput ? Held() : held;
}

bool areExchanged(const DescribedType &type, const Limits &limits)
{
    return limits.leastHeld.isValid && limits.mostHeld.isValid
           && isBelow(type, limits.mostHeld.value, limits.leastHeld.value);
}

Limits limitsOf(const CheckedElement &leaf)
{
    return {leaf.value(Key::MinLimit), leaf.value(Key::MaxLimit), checkedValue(leaf, Key::MinLimit),
            checkedValue(leaf, Key::MaxLimit)};
}

void checkView(const CheckedElement &leaf)
{
    const auto isNumber = [](const Value &value) {
        return value.isValid() && (value.kind() == Kind::Integer || value.kind() == Kind::Double);
    };
    const Value &start = leaf.value(Key::ViewStart);
    const Value &end = leaf.value(Key::ViewEnd);
    if (isNumber(start) && isNumber(end) && !(start.toDouble() < end.toDouble())) {
        leaf.report(Rule::ViewOrder, Key::ViewStart,
                    QStringLiteral("the view range does not rise from %1 to %2")
                        .arg(shown(leaf.file(), start), shown(leaf.file(), end)));
    }
}

void checkPattern(const CheckedElement &leaf)
{
    const Value &written = leaf.value(Key::RegularExpression);
    if (!written.isValid() || !written.isText() || !leaf.type().isText) {
        return;
    }
    const ValuePattern pattern(written.toString());
    if (!pattern.error().isEmpty()) {
        leaf.report(Rule::PatternInvalid, Key::RegularExpression,
                    QStringLiteral("%1: %2").arg(quoted(pattern.text()), pattern.error()));
        return;
    }
    const Value &value = leaf.value(Key::Value);
    if (value.isValid() && value.isText() && !pattern.matches(value.toString())) {
        leaf.report(Rule::PatternRefusesValue, Key::Value,
                    QStringLiteral("%1 does not match %2")
                        .arg(quoted(value.toString()), quoted(pattern.text())));
    }
}

} // namespace

Held ValueRules::held(const DescribedType &type, const Value &written)
{
    if (written.kind() == Kind::Null && (type.isNumber || type.isSelector)) {
        return {true, true, {}};
    }
    QVariant value = written.toVariant();
    const bool isConverted = value.convert(type.metaType);
    return {isConverted, false, value};
}

bool ValueRules::fits(const DescribedType &type, const Value &written)
{
    const Held held = ValueRules::held(type, written);
    return held.isNoInput
           || (held.isValid && likeness(type, written, held.value) == Likeness::Same
               && isInRange(type, held.value));
}

bool ValueRules::checkHeld(CheckedFile &file, const QString &url, const QString &name,
                           const DescribedType &type, const Value &written, const QString &what)
{
    const Held held = ValueRules::held(type, written);
    if (held.isNoInput) {
        return true;
    }
    if (!held.isValid) {
        file.report(
            Rule::ValueOfType, written, url,
            QStringLiteral("%1 is %2, which is no %3").arg(what, shown(file, written), name));
        return false;
    }
    const bool isNumber = written.kind() == Kind::Integer || written.kind() == Kind::Double;
    if (isNumber && isWhole(type.metaType) && !DocumentRules::isReadAsWritten(file, written)) {
        file.report(Rule::NumberMisread, written, url,
                    QStringLiteral("%1 is %2, and is read as %3")
                        .arg(what, shown(file, written), held.value.toString()));
        return false;
    }
    switch (likeness(type, written, held.value)) {
    case Likeness::Other:
        file.report(Rule::ValueChanged, written, url,
                    QStringLiteral("%1 is %2, which becomes %3 as %4")
                        .arg(what, shown(file, written), held.value.toString(), name));
        return false;
    case Likeness::OtherType:
        file.report(Rule::UnexpectedType, written, url,
                    QStringLiteral("%1 is %2, which is converted to %3")
                        .arg(what, shown(file, written), name));
        return true;
    case Likeness::Same: break;
    }
    if (!isInRange(type, held.value)) {
        file.report(
            Rule::ValueOutsideType, written, url,
            QStringLiteral("%1 is %2, which no %3 can hold").arg(what, shown(file, written), name));
    }
    return true;
}

void ValueRules::check(const CheckedElement &leaf)
{
    const Held value = checkedValue(leaf, Key::Value);
    if ((leaf.places() & KeyPlace::Number) != 0) {
        const Limits limits = limitsOf(leaf);
        if (checkOrder(leaf.file(), leaf.url(), leaf.type(), limits) && value.isValid) {
            checkWithin(leaf.file(), leaf.url(), leaf.type(), leaf.value(Key::Value), limits);
        }
    }
    checkView(leaf);
    if (leaf.file().isProcess()) {
        return;
    }
    if (!leaf.has(Key::Value)) {
        leaf.report(Rule::ValueMissing, Key::Value, QStringLiteral("the leaf has no 'value'"));
    }
    checkPattern(leaf);
}

bool ValueRules::checkOrder(CheckedFile &file, const QString &url, const DescribedType &type,
                            const Limits &limits)
{
    if (!areExchanged(type, limits)) {
        return true;
    }
    file.report(Rule::LimitsOrder, limits.least, url,
                QStringLiteral("the lower limit %1 is above the upper one, %2")
                    .arg(shown(file, limits.least), shown(file, limits.most)));
    return false;
}

void ValueRules::checkWithin(CheckedFile &file, const QString &url, const DescribedType &type,
                             const Value &written, const Limits &limits)
{
    const Held value = held(type, written);
    if (!value.isValid || value.isNoInput) {
        return;
    }
    const auto report = [&](const char *text, const Value &limit) {
        file.report(Rule::ValueOutsideLimits, written, url,
                    QString::fromLatin1(text).arg(shown(file, written), shown(file, limit)));
    };
    if (limits.leastHeld.isValid && isBelow(type, value.value, limits.leastHeld.value)) {
        report("%1 is below the lower limit, %2", limits.least);
    } else if (limits.mostHeld.isValid && isBelow(type, limits.mostHeld.value, value.value)) {
        report("%1 is above the upper limit, %2", limits.most);
    }
}
