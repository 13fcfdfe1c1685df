#include "values/ValueText.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "leaves/ShortestText.h"
#include "leaves/TypedValue.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "values/StateName.h"

#include <cmath>

namespace {

QString contentText(const QVariant &content, int digits)
{
    const int type = content.userType();
    const bool isShort = digits > 0 && (type == QMetaType::Float || type == QMetaType::Double)
                         && std::isfinite(content.toDouble());
    return isShort ? QString::number(content.toDouble(), 'g', digits) : shortestText(content);
}

bool isErroneous(const ProcessValue &value)
{
    return value.getErrorType() != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
           || !value.getValue().isValid();
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
    const WritableSlot target{slot.type, slot.metaType, slot.size, slot.hasMetadata(),
                              slot.bitmask};
    const TypedValue typed = TypedValue::fromText(target, text, QStringLiteral("with --error"));
    const QString problem = typed.problem.isEmpty() ? target.problemOf(typed.value) : typed.problem;
    if (!problem.isEmpty()) {
        throw Failure{ExitCode::Refused, QStringLiteral("'%1': %2").arg(url, problem)};
    }
    return typed.value;
}
