#include "native/ConfigurationRules.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "leaves/NumberLimits.h"
#include "leaves/ShortestText.h"
#include "native/Failure.h"
#include "native/GivenValue.h"
#include "native/PythonValue.h"

namespace py = pybind11;

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Tools = ConfigurationAndProcessDataTools;

[[noreturn]] void refuse(Failure::Kind kind, const QString &place, const QString &reason)
{
    throw Failure{kind, QStringLiteral("'%1': %2").arg(place, reason)};
}

/// @p property gives the property under a key, invalid where it is missing.
template <class Property>
ConfigurationRules rulesFrom(const Property &property)
{
    ConfigurationRules rules;
    rules.type = property(Definitions::getKeyDataPropertyType()).toString();
    rules.metaType = Definitions::getBasicDataTypeMapForProcessData().value(rules.type,
                                                                            QMetaType::UnknownType);
    rules.label = property(Definitions::getKeyDataPropertyLabelTextId()).toString();
    rules.pattern = property(Definitions::getKeyDataPropertyRegularExpression()).toString();
    rules.selectionList = property(QStringLiteral("selectionList")).toStringList();
    rules.isReadOnly = property(Definitions::getKeyDataPropertyReadOnly()).toBool();
    if (rules.isNumber()) {
        rules.minLimit = property(Definitions::getKeyDataPropertyMinLimit());
        rules.maxLimit = property(Definitions::getKeyDataPropertyMaxLimit());
    }
    return rules;
}

} // namespace

ConfigurationRules ConfigurationRules::of(const ConfigurationDataValue &element)
{
    auto rules = rulesFrom([&](const QString &key) { return element.getProperty(key); });
    rules.unit = element.getProperty(Definitions::getKeyDataPropertyUnit()).toString();
    return rules;
}

ConfigurationRules ConfigurationRules::of(const QVariantMap &description)
{
    auto rules = rulesFrom([&](const QString &key) { return description.value(key); });
    rules.unit = description.value(Definitions::getKeyDataPropertyUnitType()).toString();
    return rules;
}

bool ConfigurationRules::isNumber() const
{
    return Tools::isNumberType(type);
}

bool ConfigurationRules::isSelector() const
{
    return Tools::isSelectorType(type);
}

bool ConfigurationRules::isArray() const
{
    return type == Definitions::getKeyDataTypeArray();
}

QVariant ConfigurationRules::selectedIndex(py::handle object, const QString &place) const
{
    if (PyUnicode_Check(object.ptr())) {
        const int named = selectionList.indexOf(qtText(object));
        if (named >= 0) {
            return named;
        }
    } else {
        constexpr quint32 bytesOfIndex = 4;
        const QVariant index = GivenValue{place, type, QMetaType::Int, bytesOfIndex}.from(object);
        if (index.toInt() >= 0 && index.toInt() < selectionList.size()) {
            return index.toInt();
        }
    }
    QStringList entries;
    for (int i = 0; i < selectionList.size(); ++i) {
        entries.append(QStringLiteral("%1 (%2)").arg(selectionList[i]).arg(i));
    }
    refuse(Failure::Kind::Refused, place,
           QStringLiteral("%1 is none of the selection: %2")
               .arg(qtText(py::repr(object)), entries.isEmpty()
                                                  ? QStringLiteral("it has no entries")
                                                  : entries.join(QStringLiteral(", "))));
}

QVariant ConfigurationRules::uncheckedValue(py::handle object, const QString &place) const
{
    if (object.is_none()) {
        if (!isNumber() && !isSelector()) {
            refuse(Failure::Kind::TypeRefused, place,
                   QStringLiteral("only a number or a selector can be without input, not a %1")
                       .arg(type));
        }
        return Tools::getNoInputValueIndicator(static_cast<QMetaType::Type>(metaType));
    }
    if (isSelector()) {
        return selectedIndex(object, place);
    }
    const auto size = static_cast<quint32>(
        Definitions::getMapBasicDataTypeStringToSize().value(type));
    QVariant value = GivenValue{place, type, metaType, size}.from(object);
    value.convert(metaType);
    return value;
}

QVariant ConfigurationRules::valueFrom(py::handle object, const QString &place) const
{
    QVariant value = uncheckedValue(object, place);
    const QString problem = value.isNull() ? QString() : limitProblem(value, minLimit, maxLimit);
    if (!problem.isEmpty()) {
        refuse(Failure::Kind::Refused, place, problem);
    }
    return value;
}

QVariant ConfigurationRules::asCell(const QVariant &value) const
{
    constexpr qint64 largestExact = qint64(1) << 53;
    if (value.isNull() && (isNumber() || isSelector())) {
        // A null with a type would become a 0 in the file.
        return QVariant::fromValue(nullptr);
    }
    switch (value.userType()) {
    // The digits of the number, and not those of the nearest double.
    case QMetaType::Float: return shortestText(value).toDouble();
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

QVariant ConfigurationRules::fromCell(const QVariant &cell) const
{
    QVariant value = cell;
    return !cell.isNull() && metaType != QMetaType::UnknownType && value.convert(metaType) ? value
                                                                                           : cell;
}
