#include "Validation/Rule_p.h"

namespace {

constexpr auto error = DescriptionProblem::Level::Error;
constexpr auto warning = DescriptionProblem::Level::Warning;

struct Row
{
    Rule rule;
    const char *name;
    DescriptionProblem::Level level;
    const char *cause;
    const char *cure;
};

constexpr Row rows[] = {
    {Rule::Unreadable, "unreadable", error,
     "The file is not there, or there is no permission to read it. Nothing of it is "
     "loaded.",
     "Correct the path, or the permissions of the file and of the folders above it."},
    {Rule::FileName, "file-name", error,
     "The name does not end in .config.json or .process.json with a name before the "
     "dot, so the parser refuses the file.",
     "Rename it to NAME.config.json or NAME.process.json."},
    {Rule::NotRegular, "not-regular", error,
     "A FIFO, a socket or a device stands under the name of a description. It is "
     "passed over.",
     "Put a regular file there, or a link to one."},
    {Rule::NotJson, "not-json", error,
     "The text is no JSON. A description is refused; a folder.json is passed over, "
     "and its texts are empty.",
     "Correct the text where the parser stopped; the fault may stand just before."},
    {Rule::NotAnObject, "not-an-object", error,
     "The top level of the document is a list. It is read as an element without any "
     "key.",
     "Put the element there: an object with a type."},
    {Rule::DuplicateKey, "duplicate-key", error,
     "A key stands twice in one object. All but one of the members are lost without "
     "a word, mostly the first.",
     "Remove or rename one of them."},
    {Rule::NumberMisread, "number-misread", error,
     "A number is read as another one: it is too large for the 64 bits of a whole "
     "number, or does not fit what its key holds.",
     "Write a number that fits; write the value of an int64 or uint64 as a text in "
     "quotes."},
    {Rule::SchemeVersion, "scheme-version", error,
     "The document says that it is of another version of the format. It is read all "
     "the same, as version 1.",
     "Use a description of version 1, and say so: 1, or no version."},
    {Rule::MissingKey, "missing-key", error,
     "An element has no type, a tree node has no children, or a region lacks its "
     "key. The file is refused, or its memory is not created.",
     "Add the key."},
    {Rule::UnknownKey, "unknown-key", warning,
     "Tessel does not know the key. It is kept and written back, and has no effect.",
     "Correct its spelling; leave it if an application reads it."},
    {Rule::MisplacedKey, "misplaced-key", warning,
     "The key is known, but means nothing for an element of this kind, or below the top level.",
     "Remove it, or move it to the element that it is meant for."},
    {Rule::WrongType, "wrong-type", error,
     "The value of the key has a JSON type that cannot be read. The key counts as "
     "missing, or as 0.",
     "Write the type that the description format gives."},
    {Rule::UnexpectedType, "unexpected-type", warning,
     "The value of the key has another JSON type than the format gives, and is "
     "converted silently.",
     "Write the type that the description format gives."},
    {Rule::UnknownType, "unknown-type", error,
     "No such type of a leaf, or none that can stand here. A process value is not "
     "bound, a configuration value is not converted.",
     "Use one of the types of the description format."},
    {Rule::ChildrenNotObject, "children-not-object", error,
     "The value of a tree node is no object. The node is read as one without "
     "children.",
     "Write an object with the children as members."},
    {Rule::ChildNotObject, "child-not-object", error,
     "A child of a tree node is no object. The whole file is refused.",
     "Write an element there: an object with a type."},
    {Rule::UnreachableKey, "unreachable-key", error,
     "No URL reaches an element whose key is empty or holds a slash.", "Rename it."},
    {Rule::IndexLikeKey, "index-like-key", warning,
     "The key ends like the index of a table cell, such as #1,2. A configuration "
     "access takes it for one.",
     "Rename it."},
    {Rule::DisplayPositionClash, "display-position-clash", warning,
     "Two siblings have one display position. Their order is that of their keys.",
     "Give each sibling a position of its own."},
    {Rule::DisplayPositionMissing, "display-position-missing", warning,
     "The leaf has no display position while its siblings have one. It stands last, "
     "and sorting warns of it.",
     "Give it a position."},
    {Rule::RootIsLeaf, "root-is-leaf", error,
     "The top level of a process description is a leaf. Its value is neither laid "
     "out nor bound.",
     "Make the top level a tree node, with the leaf as its child."},
    {Rule::NoValues, "no-values", warning,
     "The process description has no leaf. Nothing is exchanged through it, and it "
     "cannot be merged.",
     "Add the leaves, or remove the file."},
    {Rule::ValueMissing, "value-missing", warning,
     "A configuration leaf has no value. Nothing can be read from it, and a write is"
     " refused.",
     "Add the value; null in a number or selector means that nothing has been "
     "entered."},
    {Rule::ValueOfType, "value-of-type", error,
     "The value or limit cannot be converted to the type of the leaf. It is lost, "
     "and written back as null.",
     "Write a value of the type, or correct the type."},
    {Rule::ValueChanged, "value-changed", error,
     "The value or limit becomes another one when it is converted to the type of the"
     " leaf.",
     "Write a value that the type holds, or correct the type."},
    {Rule::ValueOutsideType, "value-outside-type", warning,
     "The value or limit is larger or smaller than the type can hold. Configurations"
     " keep it, a slot would not.",
     "Write a value that the type holds, or take a wider type."},
    {Rule::ValueOutsideLimits, "value-outside-limits", warning,
     "The value or cell lies outside its own limits. No write of the library looks at "
     "them, displays and the tool do.",
     "Correct the value or the limits."},
    {Rule::LimitsOrder, "limits-order", warning,
     "The lower limit is above the upper one, so that no value is within both.",
     "Exchange or correct them."},
    {Rule::ViewOrder, "view-order", warning,
     "The view range does not rise from its start to its end, so that nothing can be"
     " drawn in it.",
     "Exchange or correct them."},
    {Rule::PatternInvalid, "pattern-invalid", error,
     "The regular expression does not compile. Every checked write is refused.",
     "Correct it; it is a QRegExp of Qt 5, and has to match the whole text."},
    {Rule::PatternRefusesValue, "pattern-refuses-value", warning,
     "The value does not match the regular expression beside it. Written back as it "
     "is, it would be refused.",
     "Correct the value or the pattern, which has to match the whole text."},
    {Rule::StampIncomplete, "stamp-incomplete", warning,
     "Of the two keys of a modification stamp one is missing. A change is not "
     "stamped.",
     "Add both modifiedBy and lastModified, with empty texts, or none."},
    {Rule::SelectorWithoutList, "selector-without-list", warning,
     "A selector has no list of what can be selected. Only its index can be shown "
     "and entered.",
     "Add a selectionList with a text for each index from 0."},
    {Rule::SelectorEntries, "selector-entries", warning,
     "The entries of a selection list are empty, no texts, or stand there twice. "
     "They cannot be told apart.",
     "Give each index a text of its own."},
    {Rule::SelectorValue, "selector-value", warning,
     "The value of a selector is no index of its list, or no cell of its column is. "
     "Nothing can be shown for it.",
     "Use an index from 0 to the number of entries less 1, or null."},
    {Rule::ArrayInformation, "array-information", error,
     "An array has no description of its dimensions that is a list of lists. It is "
     "no table to the library.",
     "Add arrayInformation: one list a dimension, in it an object for each index."},
    {Rule::ArrayShape, "array-shape", error,
     "The value of an array is no list, or its rows differ in length or kind. "
     "Reading a column of it would end the process.",
     "Give every row a list with one cell for each column."},
    {Rule::ArrayColumns, "array-columns", error,
     "The array information describes another number of columns than the rows have, "
     "or a column by something else than an object. No row can be added.",
     "Describe each column by one object in the second list of the array "
     "information."},
    {Rule::ColumnValue, "column-value", warning,
     "A cell, or a limit of a column, does not fit the type of the column.",
     "Correct it, or the type of the column."},
    {Rule::ColumnPattern, "column-pattern", warning,
     "The regular expression of a column does not compile, or a cell does not match it. No write "
     "of "
     "the library looks at it, applications may.",
     "Correct the cell or the pattern: a QRegExp of Qt 5, which has to match the whole text."},
    {Rule::ColumnDefault, "column-default", warning,
     "Rows may be added, but a column has no value for a new row. Its cell would be "
     "invalid.",
     "Add a value to the object of the column."},
    {Rule::RowLimits, "row-limits", warning,
     "The limits of the number of rows contradict each other, the rows that are "
     "there, or an array that can have no new row.",
     "Correct arrayMinRows, arrayMaxRows or the rows; a dynamic array needs a first "
     "row."},
    {Rule::SizeOfType, "size-of-type", error,
     "The size of the slot is not that of the type. The value is not bound, and "
     "refuses to be read and written.",
     "Write the size of the type into sizeValue."},
    {Rule::StringSize, "string-size", error,
     "A slot for text of fewer than two bytes. It is read as an empty text, and each"
     " write is refused.",
     "Give it two bytes a character and two for the end."},
    {Rule::StringSizeOdd, "string-size-odd", warning,
     "A slot for text with an odd number of bytes, of which the last is never used.",
     "Give it two bytes a character and two for the end."},
    {Rule::SizeOfMetadata, "size-of-metadata", warning,
     "The size of the metadata is neither 0 nor 4. The error state has 4 bytes, "
     "whatever the description says.",
     "Write 4, or 0 for a slot without error state."},
    {Rule::SlotOutsideBuffer, "slot-outside-buffer", error,
     "The value does not lie within the buffer. Each access to it is refused.",
     "Correct the offset or sizeOfSharedMemory, or have tessel build lay it out."},
    {Rule::MetadataOutsideBuffer, "metadata-outside-buffer", error,
     "The error state does not lie within the buffer, or sizeMetadata counts beyond it. Each "
     "access "
     "to the value is refused.",
     "Correct the distance, sizeMetadata, the offset or sizeOfSharedMemory."},
    {Rule::SlotsOverlap, "slots-overlap", error,
     "Two values share bytes. To write one of them changes the other.",
     "Correct the offsets, or have tessel build lay them out."},
    {Rule::MasksOverlap, "masks-overlap", error,
     "Two bits of one byte share a bit. To write one of them changes the other.",
     "Give each its own bits."},
    {Rule::MaskEmpty, "mask-empty", error,
     "A bit without any bit in the low 8 of its mask. It reads as false, and a write"
     " changes nothing.",
     "Give it a bitmask from 1 to 255."},
    {Rule::MaskBeyondByte, "mask-beyond-byte", error,
     "A mask with bits beyond the low 8, which are ignored.",
     "Move the offset to the byte that is meant, and give a bitmask from 1 to 255."},
    {Rule::DistanceIntoSlot, "distance-into-slot", error,
     "The distance of the error state leads into a value, its own or another, or to "
     "the state of another. To write one changes the other.",
     "Correct relativeOffsetMetadata; mostly it is sizeValue."},
    {Rule::DistanceOutsideSlot, "distance-outside-slot", error,
     "The error state does not lie within sizeValue and sizeMetadata of its leaf. In"
     " the layout that a build gives it lies in the slot of another.",
     "Correct relativeOffsetMetadata; mostly it is sizeValue, with a sizeMetadata of"
     " 4."},
    {Rule::NoErrorState, "no-error-state", warning,
     "The slot has no metadata, and its type cannot hold an error state. Whoever "
     "writes an error is read as a valid 0, false, empty text or NaN.",
     "Give it a sizeMetadata of 4, or take a float, if its errors have to be seen."},
    {Rule::BufferSize, "buffer-size", error,
     "The size of the buffer is negative, or too large for a region.",
     "Correct sizeOfSharedMemory."},
    {Rule::NoMemory, "no-memory", warning,
     "The description has no size of a buffer. Its values are bound to no memory.",
     "Add sizeOfSharedMemory and keyProcessDataMemory."},
    {Rule::MemoryKey, "memory-key", error,
     "The key of the memory is empty, too long, or holds a slash. The region cannot "
     "be created.",
     "Give it a short key of letters, digits, - and _."},
    {Rule::MemoryKeyCharacters, "memory-key-characters", warning,
     "The key of the memory holds characters that are inconvenient in the name of a "
     "file.",
     "Use letters, digits, - and _."},
    {Rule::NoDescriptions, "no-descriptions", error,
     "The folder holds no description at any depth. Nothing is loaded from it.",
     "Correct the path, or the names of the files."},
    {Rule::NamesReplace, "names-replace", error,
     "Two entries of a folder have one name in the tree. The later one replaces the "
     "earlier, whose values are lost.",
     "Rename one of them; the name ends at the first dot."},
    {Rule::FilesDisagree, "files-disagree", error,
     "The process descriptions of one folder disagree on the key, the size or the "
     "double buffer of their region. The folder is refused.",
     "Have tessel build lay the folder out; set doubleBuffer alike in all files."},
    {Rule::SameKey, "same-key", error,
     "Two folders have one memory key. Both would use one region, with different "
     "layouts.",
     "Clear the key of one of them, and have tessel build make a new one."},
    {Rule::LinkNowhere, "link-nowhere", error,
     "A link leads to nothing. What it stands for is missing in the tree.",
     "Correct or remove the link."},
    {Rule::LinkTwice, "link-twice", warning,
     "A link leads to a file that has another name in the folder. In the tree it is "
     "there twice, in the region once.",
     "Keep one name, or change both alike."},
    {Rule::FolderPassedOver, "folder-passed-over", warning,
     "A link leads to a folder that has another place in the tree, or back to a "
     "folder above. It is passed over.",
     "Remove the link, or let it lead to another folder."},
    {Rule::FileIgnored, "file-ignored", warning,
     "The name of a JSON file fits neither a description nor folder.json. It is "
     "nothing in the tree.",
     "Correct its name; leave it if somebody else reads it."},
    {Rule::MissingBuildKey, "missing-build-key", error,
     "A process description of a folder lacks a key that a build fills in or adds "
     "up. The build is refused or ends early.",
     "Add the key; the value 0, or an empty text for the memory key, is enough."},
    {Rule::BuildChangesOffset, "build-changes-offset", warning,
     "Offsets are not those that a build gives. The next creating start rewrites the"
     " file.",
     "Run tessel build before the folder is delivered."},
    {Rule::BuildChangesSize, "build-changes-size", warning,
     "The size of the buffer is not the one that a build gives. The next creating "
     "start rewrites the file.",
     "Run tessel build before the folder is delivered."},
    {Rule::BuildChangesKey, "build-changes-key", warning,
     "The memory key was not made for a folder of this name. The next creating start"
     " makes a new one.",
     "Run tessel build before the folder is delivered."},
};

QVector<DescriptionRule> makeTable()
{
    QVector<DescriptionRule> table;
    for (const Row &row : rows) {
        Q_ASSERT(static_cast<int>(row.rule) == table.size());
        table.append({QString::fromLatin1(row.name), row.level, QString::fromLatin1(row.cause),
                      QString::fromLatin1(row.cure)});
    }
    return table;
}

} // namespace

const QVector<DescriptionRule> &ruleTable()
{
    static const QVector<DescriptionRule> table = makeTable();
    return table;
}

const DescriptionRule &ruleOf(Rule rule)
{
    return ruleTable().at(static_cast<int>(rule));
}
