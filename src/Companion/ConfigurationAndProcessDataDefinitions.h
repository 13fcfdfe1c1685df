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
    /// `treenode`: an inner node, which has children and no value of its own.
    static const QString &getKeyDataTypeTreeNode();
    /// `array`: a list of rows; in configurations only.
    static const QString &getKeyDataTypeArray();
    /// A boolean that fills a whole byte; a boolean in single bits has another type name.
    static const QString &getKeyDataTypeBoolean();
    /// `selector`: the index of what is selected from a list.
    static const QString &getKeyDataTypeSelector();
    /// `string`: text; in a slot UTF-16 with a zero at its end.
    static const QString &getKeyDataTypeString();

    /// All type names that count as numbers: every integer and floating-point type.
    static const QStringList &getConfigurationNumberDataTypes();
    /// The type in which a value of a type name is held. Tree nodes and arrays are in no map; the
    /// value of a selector is an index.
    static const QHash<QString, QMetaType::Type> &getBasicDataTypeMapForProcessData();
    /// Bytes that a value of a type name takes in a slot. Text is missing: its size is free.
    static const QHash<QString, int> &getMapBasicDataTypeStringToSize();

    // Properties of every element.
    /// `type`: data type of the element, or that it is a tree node.
    static const QString &getKeyDataPropertyType();
    /// `value`: content of a configuration leaf, or the children of a tree node.
    static const QString &getKeyDataPropertyValue();
    /// `minLimit`: lower bound, of the element's type. No write looks at it.
    static const QString &getKeyDataPropertyMinLimit();
    /// `maxLimit`: upper bound, of the element's type. No write looks at it.
    static const QString &getKeyDataPropertyMaxLimit();
    /// `schemeVersion`: version of the format of the whole document.
    static const QString &getKeyDataPropertySchemeVersion();
    /// `displayPosition`: integer by which siblings are sorted.
    static const QString &getKeyDataPropertyDisplayPosition();
    /// `readOnly`: only the process that created the region writes the value.
    static const QString &getKeyDataPropertyReadOnly();
    /// `regularExpression`: pattern that a checked write of a text has to match as a whole.
    static const QString &getKeyDataPropertyRegularExpression();

    // Properties of the node that stands for a directory.
    /// `labelTextId`: identifier of the label to show.
    static const QString &getKeyDataPropertyLabelTextId();
    /// `cpveVersion`: text that is kept for applications.
    static const QString &getKeyDataPropertyCpveVersion();
    /// `configurationVersion`: text that is kept for applications.
    static const QString &getKeyDataPropertyConfigurationVersion();

    // Properties of arrays.
    /// `arrayInformation`: one list of descriptions for each dimension.
    static const QString &getKeyDataPropertyArrayInformation();
    /// `arrayHasDynamicRows`: whether rows may be added.
    static const QString &getKeyDataPropertyArrayHasDynamicRows();
    /// `arrayMinRows`: smallest number of rows.
    static const QString &getKeyDataPropertyArrayMinRows();
    /// `arrayMaxRows`: largest number of rows.
    static const QString &getKeyDataPropertyArrayMaxRows();
    /// `unitType`: kind of unit of a column.
    static const QString &getKeyDataPropertyUnitType();

    // Stamp of the last change of a configuration.
    /// `modifiedBy`: chain of the origins that changed the configuration.
    static const QString &getKeyDataPropertyModifiedBy();
    /// `lastModified`: date of the last change as text.
    static const QString &getKeyDataPropertyLastModified();

    // Measurement attributes.
    /// `unit`: unit to show, such as `°C`.
    static const QString &getKeyDataPropertyUnit();
    /// `unitText`: the unit in words, by language.
    static const QString &getKeyDataPropertyUnitText();
    /// `viewStart`: begin of the range in which the value is shown, in its unit.
    static const QString &getKeyDataPropertyViewStart();
    /// `viewEnd`: end of the range in which the value is shown, in its unit.
    static const QString &getKeyDataPropertyViewEnd();

    // Slot of a process value, in bytes.
    /// `offsetSharedMemory`: from the start of a buffer to the value.
    static const QString &getKeyDataPropertyOffsetSharedMemory();
    /// `relativeOffsetMetadata`: from the value to its error state.
    static const QString &getKeyDataPropertyRelativeOffsetMetadata();
    /// `sizeValue`: size of the value.
    static const QString &getKeyDataPropertySizeValue();
    /// `sizeMetadata`: 0 for a slot without error state, otherwise 4.
    static const QString &getKeyDataPropertySizeMetadata();
    /// `bitmask`: which bits of the byte belong to a value of type `bit`.
    static const QString &getKeyDataPropertyBitmask();

    // The shared memory of a whole process description.
    /// `sizeOfSharedMemory`: bytes of one buffer.
    static const QString &getKeyDataPropertySizeOfSharedMemory();
    /// `doubleBuffer`: whether there are two buffers that a swap exchanges.
    static const QString &getKeyDataPropertyDoubleBuffer();
    /// `keyProcessDataMemory`: the memory key, which names region and semaphores.
    static const QString &getStrKeyProcessDataMemory();
};
