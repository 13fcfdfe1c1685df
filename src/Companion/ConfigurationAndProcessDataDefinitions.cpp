#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include "Companion/Lasting_p.h"

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
    static const Lasting<QVector<BasicDataType>> types(QVector<BasicDataType>{
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
    });
    return types.get();
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
    static const Lasting<QString> text(QStringLiteral("treenode"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataTypeArray()
{
    static const Lasting<QString> text(QStringLiteral("array"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataTypeBoolean()
{
    static const Lasting<QString> text(QStringLiteral("boolean"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataTypeSelector()
{
    static const Lasting<QString> text(QStringLiteral("selector"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataTypeString()
{
    static const Lasting<QString> text(QStringLiteral("string"));
    return text.get();
}

const QStringList &ConfigurationAndProcessDataDefinitions::getConfigurationNumberDataTypes()
{
    static const Lasting<QStringList> names(namesOfNumberTypes());
    return names.get();
}

const QHash<QString, QMetaType::Type>
    &ConfigurationAndProcessDataDefinitions::getBasicDataTypeMapForProcessData()
{
    static const Lasting<QHash<QString, QMetaType::Type>> metaTypes(metaTypesByName());
    return metaTypes.get();
}

const QHash<QString, int> &ConfigurationAndProcessDataDefinitions::getMapBasicDataTypeStringToSize()
{
    static const Lasting<QHash<QString, int>> sizes(slotSizesByName());
    return sizes.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyType()
{
    static const Lasting<QString> text(QStringLiteral("type"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyValue()
{
    static const Lasting<QString> text(QStringLiteral("value"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyMinLimit()
{
    static const Lasting<QString> text(QStringLiteral("minLimit"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyMaxLimit()
{
    static const Lasting<QString> text(QStringLiteral("maxLimit"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertySchemeVersion()
{
    static const Lasting<QString> text(QStringLiteral("schemeVersion"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyDisplayPosition()
{
    static const Lasting<QString> text(QStringLiteral("displayPosition"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyReadOnly()
{
    static const Lasting<QString> text(QStringLiteral("readOnly"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyRegularExpression()
{
    static const Lasting<QString> text(QStringLiteral("regularExpression"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyLabelTextId()
{
    static const Lasting<QString> text(QStringLiteral("labelTextId"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyCpveVersion()
{
    static const Lasting<QString> text(QStringLiteral("cpveVersion"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyConfigurationVersion()
{
    static const Lasting<QString> text(QStringLiteral("configurationVersion"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyArrayInformation()
{
    static const Lasting<QString> text(QStringLiteral("arrayInformation"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyArrayHasDynamicRows()
{
    static const Lasting<QString> text(QStringLiteral("arrayHasDynamicRows"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyArrayMinRows()
{
    static const Lasting<QString> text(QStringLiteral("arrayMinRows"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyArrayMaxRows()
{
    static const Lasting<QString> text(QStringLiteral("arrayMaxRows"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnitType()
{
    static const Lasting<QString> text(QStringLiteral("unitType"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyModifiedBy()
{
    static const Lasting<QString> text(QStringLiteral("modifiedBy"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyLastModified()
{
    static const Lasting<QString> text(QStringLiteral("lastModified"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnit()
{
    static const Lasting<QString> text(QStringLiteral("unit"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnitText()
{
    static const Lasting<QString> text(QStringLiteral("unitText"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyViewStart()
{
    static const Lasting<QString> text(QStringLiteral("viewStart"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyViewEnd()
{
    static const Lasting<QString> text(QStringLiteral("viewEnd"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyOffsetSharedMemory()
{
    static const Lasting<QString> text(QStringLiteral("offsetSharedMemory"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyRelativeOffsetMetadata()
{
    static const Lasting<QString> text(QStringLiteral("relativeOffsetMetadata"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertySizeValue()
{
    static const Lasting<QString> text(QStringLiteral("sizeValue"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertySizeMetadata()
{
    static const Lasting<QString> text(QStringLiteral("sizeMetadata"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyBitmask()
{
    static const Lasting<QString> text(QStringLiteral("bitmask"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertySizeOfSharedMemory()
{
    static const Lasting<QString> text(QStringLiteral("sizeOfSharedMemory"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getKeyDataPropertyDoubleBuffer()
{
    static const Lasting<QString> text(QStringLiteral("doubleBuffer"));
    return text.get();
}

const QString &ConfigurationAndProcessDataDefinitions::getStrKeyProcessDataMemory()
{
    static const Lasting<QString> text(QStringLiteral("keyProcessDataMemory"));
    return text.get();
}
