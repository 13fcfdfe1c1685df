#include "configuration/ConfigurationValueText.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "leaves/NumberLimits.h"
#include "text/Failure.h"
#include "values/ValueText.h"

#include <cmath>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Tools = ConfigurationAndProcessDataTools;

[[noreturn]] void refuse(const QString &place, const QString &reason)
{
    throw Failure{ExitCode::Refused, QStringLiteral("'%1': %2").arg(place, reason)};
}

/// @p property gives the property under a key, invalid where it is missing.
template <class Property>
ConfigurationValueRules rulesFrom(const Property &property)
{
    ConfigurationValueRules rules;
    rules.type = property(Definitions::getKeyDataPropertyType()).toString();
    rules.metaType = Definitions::getBasicDataTypeMapForProcessData().value(rules.type,
                                                                            QMetaType::UnknownType);
    rules.selectionList = property(QStringLiteral("selectionList")).toStringList();
    rules.isReadOnly = property(Definitions::getKeyDataPropertyReadOnly()).toBool();
    if (rules.isNumber()) {
        rules.minLimit = limitOf(property(Definitions::getKeyDataPropertyMinLimit()),
                                 rules.metaType);
        rules.maxLimit = limitOf(property(Definitions::getKeyDataPropertyMaxLimit()),
                                 rules.metaType);
    }
    return rules;
}

QString plainText(const QVariant &value)
{
    const bool isNested = value.userType() == QMetaType::QVariantList
                          || value.userType() == QMetaType::QVariantMap;
    return isNested ? configurationJson(value)
                    : valueText({value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID});
}

QVariant floatingFromText(const QString &text, const ConfigurationValueRules &rules,
                          const QString &place)
{
    bool ok = false;
    const double number = text.toDouble(&ok);
    if (!ok || !std::isfinite(number)) {
        refuse(place, QStringLiteral("'%1' is no finite number of type %2").arg(text, rules.type));
    }
    if (rules.metaType != QMetaType::Float) {
        return number;
    }
    const auto single = static_cast<float>(number);
    if (!std::isfinite(single) || (single == 0.0F && number != 0.0)) {
        refuse(place, QStringLiteral("'%1' does not fit a float").arg(text));
    }
    return single;
}

QVariant indexFromText(const QString &text, const ConfigurationValueRules &rules,
                       const QString &place)
{
    const int named = rules.selectionList.indexOf(text);
    if (named >= 0) {
        return named;
    }
    bool ok = false;
    const int index = text.toInt(&ok);
    if (!ok || index < 0 || index >= rules.selectionList.size()) {
        QStringList entries;
        for (int i = 0; i < rules.selectionList.size(); ++i) {
            entries.append(rules.selectionList[i] + QStringLiteral(" (%1)").arg(i));
        }
        refuse(place, QStringLiteral("'%1' is none of the selection: %2")
                          .arg(text, entries.isEmpty() ? QStringLiteral("it has no entries")
                                                       : entries.join(QStringLiteral(", "))));
    }
    return index;
}

/// Integers and booleans mean here what they mean in a slot of the same type.
QVariant slotValueFromText(const QString &text, const ConfigurationValueRules &rules,
                           const QString &place)
{
    LeafSlot slot{};
    slot.size = static_cast<quint32>(
        Definitions::getMapBasicDataTypeStringToSize().value(rules.type));
    slot.type = rules.type;
    slot.metaType = rules.metaType;
    slot.bitmask = 1;
    QVariant value = valueFromText(text, slot, place);
    value.convert(rules.metaType);
    return value;
}

QVariant uncheckedValue(const QString &text, const ConfigurationValueRules &rules,
                        const QString &place)
{
    if (rules.isSelector()) {
        return indexFromText(text, rules, place);
    }
    switch (rules.metaType) {
    case QMetaType::Float:
    case QMetaType::Double: return floatingFromText(text, rules, place);
    case QMetaType::QString: return text;
    case QMetaType::UnknownType:
        refuse(place, QStringLiteral("no value can be given to type '%1'").arg(rules.type));
    default: return slotValueFromText(text, rules, place);
    }
}

void checkLimits(const QVariant &value, const ConfigurationValueRules &rules, const QString &place)
{
    const QString problem = limitProblem(value, rules.minLimit, rules.maxLimit);
    if (!problem.isEmpty()) {
        refuse(place, problem);
    }
}

} // namespace

bool ConfigurationValueRules::isNumber() const
{
    return Tools::isNumberType(type);
}

bool ConfigurationValueRules::isSelector() const
{
    return Tools::isSelectorType(type);
}

ConfigurationValueRules rulesOf(const ConfigurationLeaf &leaf)
{
    return rulesFrom([&leaf](const QString &key) { return leaf.element->getProperty(key); });
}

ConfigurationValueRules rulesOf(const QVariantMap &description)
{
    return rulesFrom([&description](const QString &key) { return description.value(key); });
}

bool isNoInput(const QVariant &value, const ConfigurationValueRules &rules)
{
    return (rules.isNumber() || rules.isSelector()) && value.isNull();
}

QString configurationText(const QVariant &value, const ConfigurationValueRules &rules)
{
    if (value.isNull()) {
        return {};
    }
    bool isIndex = false;
    const int index = value.toInt(&isIndex);
    if (rules.isSelector() && isIndex && index >= 0 && index < rules.selectionList.size()
        && rules.selectionList.indexOf(rules.selectionList[index]) == index) {
        return rules.selectionList[index];
    }
    return plainText(value);
}

QString configurationJson(const QVariant &value)
{
    return nestedJson(value);
}

QVariant configurationValue(const QString &text, const ConfigurationValueRules &rules,
                            const QString &place)
{
    QVariant value = uncheckedValue(text, rules, place);
    checkLimits(value, rules, place);
    return value;
}

void checkTakesNoInput(const ConfigurationValueRules &rules, const QString &place)
{
    if (!rules.isNumber() && !rules.isSelector()) {
        refuse(place, QStringLiteral("only a number or a selector can be without input, not a %1")
                          .arg(rules.type));
    }
}

QVariant asCell(const QVariant &value, const ConfigurationValueRules &rules)
{
    constexpr qint64 largestExact = qint64(1) << 53;
    if (value.isNull() && (rules.isNumber() || rules.isSelector())) {
        // A null with a type would become a 0 in the file.
        return QVariant::fromValue(nullptr);
    }
    switch (value.userType()) {
    // The digits that were typed, and not those of the nearest single-precision number.
    case QMetaType::Float: return plainText(value).toDouble();
    // A number of JSON is a double, in which 64 bits find no room.
    case QMetaType::LongLong:
        return value.toLongLong() >= -largestExact && value.toLongLong() <= largestExact
                   ? value
                   : QVariant(value.toString());
    case QMetaType::ULongLong:
        return value.toULongLong() <= quint64(largestExact) ? value : QVariant(value.toString());
    default: return value;
    }
}
