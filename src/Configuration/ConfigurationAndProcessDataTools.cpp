#include "Configuration/ConfigurationAndProcessDataTools.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationDataValue.h"

#include <QDebug>

#include <optional>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

/// The data type name that @p element carries, or nothing if it has none that reads as text.
std::optional<QString> readDataType(const ConfigurationAndProcessDataBase &element)
{
    const QVariant dataType = element.getProperty(Definitions::getKeyDataPropertyType());
    if (!dataType.isValid() || !dataType.canConvert<QString>()) {
        return std::nullopt;
    }
    return dataType.toString();
}

} // namespace

bool ConfigurationAndProcessDataTools::isNumberType(const QString &dataType)
{
    return Definitions::getConfigurationNumberDataTypes().contains(dataType);
}

bool ConfigurationAndProcessDataTools::isNumberType(const ConfigurationAndProcessDataBase &element)
{
    const auto dataType = readDataType(element);
    return dataType && isNumberType(*dataType);
}

bool ConfigurationAndProcessDataTools::isNumberType(const BaseClassSharedPointer &element)
{
    return !element.isNull() && isNumberType(*element);
}

bool ConfigurationAndProcessDataTools::isSelectorType(const QString &dataType)
{
    return dataType == Definitions::getKeyDataTypeSelector();
}

bool ConfigurationAndProcessDataTools::isSelectorType(
    const ConfigurationAndProcessDataBase &element)
{
    const auto dataType = readDataType(element);
    return dataType && isSelectorType(*dataType);
}

bool ConfigurationAndProcessDataTools::isSelectorType(const BaseClassSharedPointer &element)
{
    return !element.isNull() && isSelectorType(*element);
}

bool ConfigurationAndProcessDataTools::isVariantNumber(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float: return true;
    default: return false;
    }
}

QVariant ConfigurationAndProcessDataTools::getNoInputValueIndicator(QMetaType::Type type)
{
    return QVariant(static_cast<QVariant::Type>(type));
}

bool ConfigurationAndProcessDataTools::isNoInputValueIndicatorSet(const QVariant &value)
{
    return value.isValid() && value.isNull();
}

bool ConfigurationAndProcessDataTools::isNoInputValueIndicatorSet(
    const QString &url, const BaseClassSharedPointer &root)
{
    if (root.isNull()) {
        return false;
    }
    const BaseClassSharedPointer leaf = root->getLeaf(url);
    if (leaf.isNull()) {
        qWarning() << "Invalid url given" << url;
        return false;
    }
    return leaf->isNumberNoInput() || leaf->isSelectorNoInput();
}

QVariant ConfigurationAndProcessDataTools::extractConfigValue(const QString &url,
                                                              const BaseClassSharedPointer &root)
{
    QVariant result;
    if (root.isNull()) {
        qWarning() << "Pointer to configuration root invalid!";
        return result;
    }
    result = extractConfigValueWithArrayIndexUrl(url, root);
    // Also for a cell in which nothing has been entered: no leaf answers to a URL with an index, and
    // the cell comes back.
    if (result.isNull()) {
        const auto leaf = root->getLeafConfigurationData(url);
        if (!leaf.isNull()) {
            result = leaf->getValue();
        }
    }
    return result;
}

bool ConfigurationAndProcessDataTools::extractConfigValueInt(const QString &url,
                                                             const BaseClassSharedPointer &root,
                                                             int &value)
{
    bool ok = false;
    value = extractConfigValue(url, root).toInt(&ok);
    return ok;
}

bool ConfigurationAndProcessDataTools::extractConfigValueUint(const QString &url,
                                                              const BaseClassSharedPointer &root,
                                                              unsigned int &value)
{
    bool ok = false;
    value = extractConfigValue(url, root).toUInt(&ok);
    return ok;
}

bool ConfigurationAndProcessDataTools::extractConfigValueDouble(const QString &url,
                                                                const BaseClassSharedPointer &root,
                                                                double &value)
{
    bool ok = false;
    value = extractConfigValue(url, root).toDouble(&ok);
    return ok;
}

bool ConfigurationAndProcessDataTools::extractConfigValueQString(const QString &url,
                                                                 const BaseClassSharedPointer &root,
                                                                 QString &value)
{
    value = extractConfigValue(url, root).toString();
    return !value.isNull();
}

bool ConfigurationAndProcessDataTools::extractConfigValueQVariant(
    const QString &url, const BaseClassSharedPointer &root, QVariant &value)
{
    value = extractConfigValue(url, root);
    return !value.isNull();
}

bool ConfigurationAndProcessDataTools::extractConfigValueFromMap(const QString &url,
                                                                 const QString &key,
                                                                 const BaseClassSharedPointer &root,
                                                                 QVariant &value)
{
    const QVariant content = extractConfigValue(url, root);
    if (content.type() != QVariant::Map) {
        return false;
    }
    const QVariantMap map = content.toMap();
    const auto entry = map.constFind(key);
    if (entry == map.cend()) {
        return false;
    }
    value = *entry;
    return true;
}

QVariant ConfigurationAndProcessDataTools::extractProperty(const QString &url,
                                                           const QString &property,
                                                           const BaseClassSharedPointer &root)
{
    if (root.isNull()) {
        qWarning() << "Pointer to root invalid!";
        return {};
    }
    const BaseClassSharedPointer leaf = root->getLeaf(url);
    if (leaf.isNull()) {
        qWarning() << "Leaf url not value" << url;
        return {};
    }
    return leaf->getProperty(property);
}

QStringList ConfigurationAndProcessDataTools::extractPropertyStringList(
    const QString &url, const QString &property, const BaseClassSharedPointer &root)
{
    const QVariant list = extractProperty(url, property, root);
    if (!list.canConvert<QStringList>()) {
        qWarning() << "Selection List Property of url" << url << "invalid";
        return {};
    }
    return list.toStringList();
}

QString ConfigurationAndProcessDataTools::getDataType(const QString &url,
                                                      const BaseClassSharedPointer &root)
{
    const QVariant dataType = extractProperty(url, Definitions::getKeyDataPropertyType(), root);
    if (!dataType.canConvert<QString>()) {
        qWarning() << "Data Type Property of url" << url << "invalid";
        return {};
    }
    return dataType.toString();
}

QString ConfigurationAndProcessDataTools::selectionIndexToSelectionString(
    const int &index, const QStringList &selectionList)
{
    if (index < 0 || index >= selectionList.size()) {
        qWarning() << "Given index" << index << "larger than number of selection list entries";
        return {};
    }
    return selectionList.at(index);
}

int ConfigurationAndProcessDataTools::selectionStringToSelectionIndex(
    const QString &selectionString, const QStringList &selectionList)
{
    if (selectionList.isEmpty()) {
        qWarning() << "Error empty selection list";
        return -1;
    }
    const int index = selectionList.indexOf(selectionString);
    if (index < 0) {
        qWarning() << "Cannot find selection string" << selectionString << "in list";
    }
    return index;
}
