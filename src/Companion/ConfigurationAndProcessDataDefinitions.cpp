#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <QVector>

namespace {

/// What a type name stands for.
struct BasicDataType
{
    QString name;
    QMetaType::Type metaType;
    /// In bytes; 0 for a type whose slot size is not fixed by its name.
    int slotSize;
    bool isNumber;
};

using Definitions = ConfigurationAndProcessDataDefinitions;

/// All types of leaves but the array, whose cells have types of their own.
const QVector<BasicDataType> &basicDataTypes()
{
    static const QVector<BasicDataType> types = {
        {Definitions::getKeyDataTypeBoolean(), QMetaType::Bool, 1, false},
        {QLatin1String("bit"), QMetaType::Bool, 1, false},
        {QLatin1String("int8"), QMetaType::Int, 1, true},
        {QLatin1String("int16"), QMetaType::Int, 2, true},
        {QLatin1String("int32"), QMetaType::Int, 4, true},
        {QLatin1String("int64"), QMetaType::LongLong, 8, true},
        {QLatin1String("uint8"), QMetaType::UInt, 1, true},
        {QLatin1String("uint16"), QMetaType::UInt, 2, true},
        {QLatin1String("uint32"), QMetaType::UInt, 4, true},
        {QLatin1String("uint64"), QMetaType::ULongLong, 8, true},
        {QLatin1String("float"), QMetaType::Float, 4, true},
        {QLatin1String("double"), QMetaType::Double, 8, true},
        {Definitions::getKeyDataTypeString(), QMetaType::QString, 0, false},
        // The value of a selector is the index of what is selected.
        {Definitions::getKeyDataTypeSelector(), QMetaType::Int, 4, false},
    };
    return types;
}

QStringList namesOfNumberTypes()
{
    QStringList names;
    for (const auto &type : basicDataTypes()) {
        if (type.isNumber) {
            names.append(type.name);
        }
    }
    return names;
}

QHash<QString, QMetaType::Type> metaTypesByName()
{
    QHash<QString, QMetaType::Type> metaTypes;
    for (const auto &type : basicDataTypes()) {
        metaTypes.insert(type.name, type.metaType);
    }
    return metaTypes;
}

QHash<QString, int> slotSizesByName()
{
    QHash<QString, int> sizes;
    for (const auto &type : basicDataTypes()) {
        if (type.slotSize > 0) {
            sizes.insert(type.name, type.slotSize);
        }
    }
    return sizes;
}

} // namespace

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataTypeTreeNode()
{
    static const QString text = QStringLiteral("treenode");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataTypeArray()
{
    static const QString text = QStringLiteral("array");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataTypeBoolean()
{
    static const QString text = QStringLiteral("boolean");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataTypeSelector()
{
    static const QString text = QStringLiteral("selector");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataTypeString()
{
    static const QString text = QStringLiteral("string");
    return text;
}

const QStringList &ConfigurationAndProcessDataDefinitions::getConfigurationNumberDataTypes()
{
    static const QStringList names = namesOfNumberTypes();
    return names;
}

const QHash<QString, QMetaType::Type>
    &ConfigurationAndProcessDataDefinitions::getBasicDataTypeMapForProcessData()
{
    static const QHash<QString, QMetaType::Type> metaTypes = metaTypesByName();
    return metaTypes;
}

const QHash<QString, int> &ConfigurationAndProcessDataDefinitions::getMapBasicDataTypeStringToSize()
{
    static const QHash<QString, int> sizes = slotSizesByName();
    return sizes;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyType()
{
    static const QString text = QStringLiteral("type");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyValue()
{
    static const QString text = QStringLiteral("value");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyMinLimit()
{
    static const QString text = QStringLiteral("minLimit");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyMaxLimit()
{
    static const QString text = QStringLiteral("maxLimit");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertySchemeVersion()
{
    static const QString text = QStringLiteral("schemeVersion");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyDisplayPosition()
{
    static const QString text = QStringLiteral("displayPosition");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyReadOnly()
{
    static const QString text = QStringLiteral("readOnly");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyRegularExpression()
{
    static const QString text = QStringLiteral("regularExpression");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyLabelTextId()
{
    static const QString text = QStringLiteral("labelTextId");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyCpveVersion()
{
    static const QString text = QStringLiteral("cpveVersion");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyConfigurationVersion()
{
    static const QString text = QStringLiteral("configurationVersion");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyArrayInformation()
{
    static const QString text = QStringLiteral("arrayInformation");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyArrayHasDynamicRows()
{
    static const QString text = QStringLiteral("arrayHasDynamicRows");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyArrayMinRows()
{
    static const QString text = QStringLiteral("arrayMinRows");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyArrayMaxRows()
{
    static const QString text = QStringLiteral("arrayMaxRows");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnitType()
{
    static const QString text = QStringLiteral("unitType");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyModifiedBy()
{
    static const QString text = QStringLiteral("modifiedBy");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyLastModified()
{
    static const QString text = QStringLiteral("lastModified");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnit()
{
    static const QString text = QStringLiteral("unit");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnitText()
{
    static const QString text = QStringLiteral("unitText");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyViewStart()
{
    static const QString text = QStringLiteral("viewStart");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyViewEnd()
{
    static const QString text = QStringLiteral("viewEnd");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyOffsetSharedMemory()
{
    static const QString text = QStringLiteral("offsetSharedMemory");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyRelativeOffsetMetadata()
{
    static const QString text = QStringLiteral("relativeOffsetMetadata");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertySizeValue()
{
    static const QString text = QStringLiteral("sizeValue");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertySizeMetadata()
{
    static const QString text = QStringLiteral("sizeMetadata");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyBitmask()
{
    static const QString text = QStringLiteral("bitmask");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertySizeOfSharedMemory()
{
    static const QString text = QStringLiteral("sizeOfSharedMemory");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyDoubleBuffer()
{
    static const QString text = QStringLiteral("doubleBuffer");
    return text;
}

const QString &ConfigurationAndProcessDataDefinitions::getStrKeyProcessDataMemory()
{
    static const QString text = QStringLiteral("keyProcessDataMemory");
    return text;
}
