#pragma once

#include "Companion/TesselExport.h"

#include <QHash>
#include <QMetaType>
#include <QString>
#include <QStringList>

/// The words of the description format: data type names, property keys, and what the type names
/// stand for.
///
/// Every reference stays valid and unchanged until the process ends, may be taken from any thread,
/// and may be asked for while static objects are still being constructed.
class TESSEL_EXPORT ConfigurationAndProcessDataDefinitions
{
public:
    ConfigurationAndProcessDataDefinitions() = delete;

    // Data type names.
    static const QString &getKeyDataTypeTreeNode();
    static const QString &getKeyDataTypeArray();
    /// A boolean that fills a whole byte; a boolean in single bits has another type name.
    static const QString &getKeyDataTypeBoolean();
    static const QString &getKeyDataTypeSelector();
    static const QString &getKeyDataTypeString();

    /// All type names that count as numbers: every integer and floating-point type.
    static const QStringList &getConfigurationNumberDataTypes();
    /// The type in which a value of a type name is held. Tree nodes and arrays are in no map; the
    /// value of a selector is an index.
    static const QHash<QString, QMetaType::Type> &getBasicDataTypeMapForProcessData();
    /// Bytes that a value of a type name takes in a slot. Text is missing: its size is free.
    static const QHash<QString, int> &getMapBasicDataTypeStringToSize();

    // Properties of every element.
    static const QString &getKeyDataPropertyType();
    static const QString &getKeyDataPropertyValue();
    static const QString &getKeyDataPropertyMinLimit();
    static const QString &getKeyDataPropertyMaxLimit();
    static const QString &getKeyDataPropertySchemeVersion();
    static const QString &getKeyDataPropertyDisplayPosition();
    static const QString &getKeyDataPropertyReadOnly();
    static const QString &getKeyDataPropertyRegularExpression();

    // Properties of the node that stands for a directory.
    static const QString &getKeyDataPropertyLabelTextId();
    static const QString &getKeyDataPropertyCpveVersion();
    static const QString &getKeyDataPropertyConfigurationVersion();

    // Properties of arrays.
    static const QString &getKeyDataPropertyArrayInformation();
    static const QString &getKeyDataPropertyArrayHasDynamicRows();
    static const QString &getKeyDataPropertyArrayMinRows();
    static const QString &getKeyDataPropertyArrayMaxRows();
    static const QString &getKeyDataPropertyUnitType();

    // Stamp of the last change of a configuration.
    static const QString &getKeyDataPropertyModifiedBy();
    static const QString &getKeyDataPropertyLastModified();

    // Measurement attributes.
    static const QString &getKeyDataPropertyUnit();
    static const QString &getKeyDataPropertyUnitText();
    static const QString &getKeyDataPropertyViewStart();
    static const QString &getKeyDataPropertyViewEnd();

    // Slot of a process value, in bytes.
    static const QString &getKeyDataPropertyOffsetSharedMemory();
    static const QString &getKeyDataPropertyRelativeOffsetMetadata();
    static const QString &getKeyDataPropertySizeValue();
    static const QString &getKeyDataPropertySizeMetadata();
    static const QString &getKeyDataPropertyBitmask();

    // The shared memory of a whole process description.
    static const QString &getKeyDataPropertySizeOfSharedMemory();
    static const QString &getKeyDataPropertyDoubleBuffer();
    static const QString &getStrKeyProcessDataMemory();
};
