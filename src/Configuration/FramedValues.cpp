#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/DescriptionTexts_p.h"
#include "Configuration/FramedValues_p.h"
#include "Configuration/FramingSilence_p.h"

#include <QDebug>

using Definitions = ConfigurationAndProcessDataDefinitions;
using Tools = ConfigurationAndProcessDataTools;

namespace {

/// A value or limit of an element as a description has it.
QVariant toFramedForm(const ConfigurationAndProcessDataBase &element, const QString &typeName,
                      QMetaType::Type dataType, const QVariant &value)
{
    if (dataType == QMetaType::UnknownType) {
        return value;
    }
    if (element.isNoInputValueIndicatorSet(typeName, value)) {
        return Tools::getNoInputValueIndicator(QMetaType::Nullptr);
    }
    QVariant converted = value;
    if (!converted.convert(dataType)) {
        if (!FramingSilence::isKept()) {
            // A failed attempt empties the variant, and the log is to show what was there before.
            qWarning() << "Wrong type, property can't set" << static_cast<int>(dataType) << value;
        }
        return {};
    }
    return converted;
}

} // namespace

std::vector<QVariant> toFramedValues(const ConfigurationAndProcessDataBase &element,
                                     const ConfigurationAndProcessDataBase::PropertyMap &properties,
                                     const QHash<QString, QMetaType::Type> &dataTypes)
{
    const QString typeName = properties.value(Definitions::getKeyDataPropertyType()).toString();
    QMetaType::Type dataType = dataTypes.value(typeName, QMetaType::UnknownType);
    if (dataType == QMetaType::LongLong || dataType == QMetaType::ULongLong) {
        // A number of JSON is a double, in which 64 bits find no room.
        dataType = QMetaType::QString;
    }
    std::vector<QVariant> values;
    values.reserve(static_cast<std::size_t>(properties.size()));
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        values.push_back(PropertyKey::isHeldInDataTypeUnder(property.key())
                             ? toFramedForm(element, typeName, dataType, property.value())
                             : property.value());
    }
    return values;
}
