#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "TesselModels/ConfigurationValue_p.h"
#include "leaves/NumberLimits.h"
#include "leaves/WritableSlot.h"

#include <QJsonDocument>
#include <QJsonValue>

#include <cmath>
#include <limits>

using namespace TesselModels;

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

bool isFloating(QMetaType::Type type)
{
    return type == QMetaType::Float || type == QMetaType::Double;
}

bool isSigned(QMetaType::Type type)
{
    return type == QMetaType::Int || type == QMetaType::LongLong;
}

/// Whether a whole number fits into the bits of its type, of which a variant may have more.
bool fits(const QVariant &number, const QString &typeName, QMetaType::Type type)
{
    const auto bytes = static_cast<quint32>(
        Definitions::getMapBasicDataTypeStringToSize().value(typeName, 0));
    return isSigned(type) ? NumberRange<qint64>::ofBytes(bytes).has(number.toLongLong())
                          : NumberRange<quint64>::ofBytes(bytes).has(number.toULongLong());
}

/// A number of the type; invalid if it is none.
QVariant number(const QVariant &given, const QString &typeName, QMetaType::Type type)
{
    if (isFloating(type)) {
        bool ok = false;
        const double floating = given.toDouble(&ok);
        const bool isFinite = std::isfinite(floating)
                              && (type == QMetaType::Double
                                  || std::abs(floating)
                                         <= double(std::numeric_limits<float>::max()));
        QVariant result(floating);
        return ok && isFinite && result.convert(type) ? result : QVariant();
    }
    // QML has no other numbers than doubles; half a whole number would be rounded. Up to the bound each whole
    // number is a double of its own; what lies beyond 64 bits would become any number at all.
    constexpr double mostExact = 9007199254740992.0;
    const bool isDouble = isFloating(static_cast<QMetaType::Type>(given.userType()));
    if (isDouble
        && (std::trunc(given.toDouble()) != given.toDouble()
            || std::abs(given.toDouble()) > mostExact)) {
        return {};
    }
    bool ok = false;
    QVariant result = isSigned(type) ? QVariant(given.toLongLong(&ok))
                                     : QVariant(given.toULongLong(&ok));
    const bool isNegative = !isSigned(type)
                            && (isDouble ? given.toDouble() < 0
                                         : given.toString().startsWith(QLatin1Char('-')));
    return ok && !isNegative && fits(result, typeName, type) && result.convert(type) ? result
                                                                                     : QVariant();
}

QVariant boolean(const QVariant &given)
{
    const QString word = given.toString().toLower();
    if (word == QLatin1String("true") || word == QLatin1String("1")) {
        return true;
    }
    return word == QLatin1String("false") || word == QLatin1String("0") ? QVariant(false)
                                                                        : QVariant();
}

QVariant converted(const QVariant &given, const QString &typeName, const QStringList &selection)
{
    const auto type = Definitions::getBasicDataTypeMapForProcessData().value(
        typeName, QMetaType::UnknownType);
    if (typeName == Definitions::getKeyDataTypeSelector()) {
        const int entry = given.type() == QVariant::String ? selection.indexOf(given.toString())
                                                           : -1;
        const QVariant index = entry >= 0 ? QVariant(entry) : number(given, typeName, type);
        const bool isEntry = index.isValid() && index.toInt() >= 0
                             && (selection.isEmpty() || index.toInt() < selection.size());
        return isEntry ? index : QVariant();
    }
    switch (type) {
    case QMetaType::QString: return given.canConvert<QString>() ? given.toString() : QVariant();
    case QMetaType::Bool: return boolean(given);
    case QMetaType::UnknownType: return {};
    default: return number(given, typeName, type);
    }
}

} // namespace

ConfigurationEntry ConfigurationEntry::of(const ConfigurationDataValue &element,
                                          const QVariant &given)
{
    if (element.getProperty(Definitions::getKeyDataPropertyReadOnly()).toBool()) {
        return {{}, ConfigurationReadOnly, QStringLiteral("the value is read-only")};
    }
    const QString type = element.getProperty(Definitions::getKeyDataPropertyType()).toString();
    const QStringList selection =
        element.getProperty(QStringLiteral("selectionList")).toStringList();
    const QVariant value = converted(given, type, selection);
    if (!value.isValid()) {
        return {{},
                ConfigurationWrongType,
                QStringLiteral("'%1' is no %2").arg(given.toString(), type)};
    }
    const QString problem =
        element.isNumberType()
            ? limitProblem(value, element.getProperty(Definitions::getKeyDataPropertyMinLimit()),
                           element.getProperty(Definitions::getKeyDataPropertyMaxLimit()))
            : QString();
    if (!problem.isEmpty()) {
        return {{}, ConfigurationOutOfRange, problem};
    }
    return {value, ConfigurationChanged, {}};
}

QString configurationText(const QVariant &value, const QStringList &selection)
{
    if (!value.isValid() || value.isNull()) {
        return {};
    }
    if (value.type() == QVariant::List || value.type() == QVariant::Map) {
        return QString::fromUtf8(QJsonDocument::fromVariant(value).toJson(QJsonDocument::Compact));
    }
    return selection.isEmpty() ? value.toString()
                               : selection.value(value.toInt(), value.toString());
}

QString configurationStatusText(ConfigurationStatus status)
{
    switch (status) {
    case ConfigurationChanged: return QStringLiteral("changed");
    case ConfigurationUnchanged: return QStringLiteral("unchanged");
    case ConfigurationTargetMissing: return QStringLiteral("there is no such value");
    case ConfigurationPatternMismatch: return QStringLiteral("the text does not match the pattern");
    default: return QStringLiteral("the element has no value that could be set");
    }
}
