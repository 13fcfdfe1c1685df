#pragma once

#include "Companion/JsonText_p.h"

#include <QString>
#include <QStringList>

#include <optional>

/// The keys of the description format.
enum class DescribedKey {
    Type,
    Value,
    MinLimit,
    MaxLimit,
    SchemeVersion,
    DisplayPosition,
    ReadOnly,
    RegularExpression,
    LabelTextId,
    CpveVersion,
    ConfigurationVersion,
    ArrayInformation,
    ArrayHasDynamicRows,
    ArrayMinRows,
    ArrayMaxRows,
    UnitType,
    ModifiedBy,
    LastModified,
    Unit,
    UnitText,
    ViewStart,
    ViewEnd,
    OffsetSharedMemory,
    RelativeOffsetMetadata,
    SizeValue,
    SizeMetadata,
    Bitmask,
    SizeOfSharedMemory,
    DoubleBuffer,
    KeyProcessDataMemory,
    SelectionList
};
constexpr int describedKeyCount = static_cast<int>(DescribedKey::SelectionList) + 1;

/// Where a key may stand; an element is mostly several of them at once.
namespace KeyPlace {
enum Place : unsigned {
    Node = 1,
    ConfigurationLeaf = 2,
    ProcessLeaf = 4,
    AnyLeaf = ConfigurationLeaf | ProcessLeaf,
    Number = 8, ///< a leaf or column of a number type or a selector
    ConfigurationText = 16,
    Selector = 32,
    Array = 64,
    Column = 128,      ///< an object in the information of an array
    Folder = 256,      ///< folder.json
    Top = 512,         ///< the element that a file begins with
    ProcessTop = 1024, ///< the same of a process description
    Element = Node | AnyLeaf
};
} // namespace KeyPlace

/// What the value of a key has to be, and what comes of something else.
enum class KeyForm {
    Any,        ///< left to other rules
    Text,       ///< read by conversion: what has no text is wrong
    FreeText,   ///< for applications: everything else is just unexpected
    FreeNumber, ///< the same for a number
    FreeObject, ///< the same for an object
    Flag,       ///< read by conversion
    Count,      ///< 0 to 4294967295, read by conversion
    Position,   ///< of 32 bits with sign, read by conversion
    Version,    ///< only a whole number is read
};

struct DescribedKeyRow
{
    DescribedKey key;
    QString text;
    unsigned places;
    KeyForm form;
};

const DescribedKeyRow &rowOf(DescribedKey key);
const QString &textOf(DescribedKey key);
/// Nothing for a key that the format does not have.
std::optional<DescribedKey> describedKey(const JsonText::Value &key);
/// All keys that may stand in one of @p places.
QStringList describedKeysIn(unsigned places);
