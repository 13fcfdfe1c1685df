#pragma once

#include "Validation/DescriptionRule.h"

#include <QVector>

/// The rules by subject, in the order in which RuleTable.cpp explains them.
enum class Rule {
    // documents
    Unreadable,
    FileName,
    NotRegular,
    NotJson,
    NotAnObject,
    DuplicateKey,
    NumberMisread,
    SchemeVersion,
    // elements
    MissingKey,
    UnknownKey,
    MisplacedKey,
    WrongType,
    UnexpectedType,
    UnknownType,
    ChildrenNotObject,
    ChildNotObject,
    UnreachableKey,
    IndexLikeKey,
    DisplayPositionClash,
    DisplayPositionMissing,
    RootIsLeaf,
    NoValues,
    // values
    ValueMissing,
    ValueOfType,
    ValueChanged,
    ValueOutsideType,
    ValueOutsideLimits,
    LimitsOrder,
    ViewOrder,
    PatternInvalid,
    PatternRefusesValue,
    StampIncomplete,
    // selectors and tables
    SelectorWithoutList,
    SelectorEntries,
    SelectorValue,
    ArrayInformation,
    ArrayShape,
    ArrayColumns,
    ColumnValue,
    ColumnPattern,
    ColumnDefault,
    RowLimits,
    // slots
    SizeOfType,
    StringSize,
    StringSizeOdd,
    SizeOfMetadata,
    SlotOutsideBuffer,
    MetadataOutsideBuffer,
    SlotsOverlap,
    MasksOverlap,
    MaskEmpty,
    MaskBeyondByte,
    DistanceIntoSlot,
    DistanceOutsideSlot,
    NoErrorState,
    BufferSize,
    NoMemory,
    MemoryKey,
    MemoryKeyCharacters,
    // folders
    NoDescriptions,
    NamesReplace,
    FilesDisagree,
    SameKey,
    LinkNowhere,
    LinkTwice,
    FolderPassedOver,
    FileIgnored,
    MissingBuildKey,
    BuildChangesOffset,
    BuildChangesSize,
    BuildChangesKey
};

/// What is told of a rule.
const DescriptionRule &ruleOf(Rule rule);

/// All of them, in the order of the enumeration.
const QVector<DescriptionRule> &ruleTable();
