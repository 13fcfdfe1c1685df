// Single cells of arrays by URL.

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/RowPart_p.h"
#include "Configuration/UrlWalk_p.h"

#include <algorithm>
#include <typeinfo>

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

/// False for every plain URL, for which no table need be made.
bool namesCell(const QString &url)
{
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, urlWithoutIndex);
    return index.isValid();
}

/// The leaf at @p url, if only elements of the library's own classes lie on the way and at its end:
/// nobody sees how often they are asked. Else null, whether or not there is one.
QSharedPointer<ConfigurationDataValue> findOwnLeaf(const Base::BaseClassSharedPointer &root,
                                                   const QString &url)
{
    if (root.isNull() || !isOfNodeClass(*root)) {
        return {};
    }
    QStringView rest = url;
    const auto *const reached = followUrl(*root, rest);
    if (reached == nullptr || reached->isNull() || !rest.isEmpty()) {
        return {};
    }
    const Base &element = **reached;
    return typeid(element) == typeid(ConfigurationDataValue)
               ? reached->staticCast<ConfigurationDataValue>()
               : QSharedPointer<ConfigurationDataValue>();
}

bool isList(const QVariant &value)
{
    return value.userType() == QMetaType::QVariantList;
}

/// Values that are compared by themselves, with nothing else coming of it.
bool isPlain(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::UnknownType:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::QString: return true;
    default: return false;
    }
}

/// False where a cell is NaN.
bool equalsItself(const QVariantList &row)
{
    // NOLINTNEXTLINE(misc-redundant-expression): NaN is not equal to itself
    // cppcheck-suppress duplicateExpression ; the same
    return std::all_of(row.cbegin(), row.cend(), [](const QVariant &cell) { return cell == cell; });
}

/// What a write into a cell does, as far as its row can tell.
enum class CellWrite { ChangesOneCell, ChangesNothing, Other };

/// Other rows do not count, as a table that is written whole shares them with the one before. Tables
/// of another shape are left to the wrapper, which says what is wrong with them.
CellWrite effectOfWrite(const ConfigurationDataValue &leaf, const SelectorUrlArrayIndex &index,
                        const QVariant &value)
{
    if (leaf.getProperty(Definitions::getKeyDataPropertyType()).toString()
            != Definitions::getKeyDataTypeArray()
        || !isList(leaf.getProperty(Definitions::getKeyDataPropertyArrayInformation()))) {
        return CellWrite::Other;
    }
    const QVariant content = leaf.getValue();
    const QVariantList rows = isList(content) ? content.toList() : QVariantList();
    if (index.getRowIndex() >= static_cast<quint32>(rows.size()) || !isList(rows.first())
        || !isList(rows.at(static_cast<int>(index.getRowIndex())))) {
        return CellWrite::Other;
    }
    const QVariantList firstRow = rows.first().toList();
    const QVariantList row = rows.at(static_cast<int>(index.getRowIndex())).toList();
    if (row.isEmpty() || row.size() != firstRow.size() || isList(firstRow.first())
        || index.getColumnIndex() >= static_cast<quint32>(row.size())) {
        return CellWrite::Other;
    }
    const QVariant &cell = row.at(static_cast<int>(index.getColumnIndex()));
    if (cell == value) {
        // A row that differs from itself is written, with the type of the new value.
        return equalsItself(row) ? CellWrite::ChangesNothing : CellWrite::Other;
    }
    return isPlain(cell) && isPlain(value) ? CellWrite::ChangesOneCell : CellWrite::Other;
}

/// Writes a cell where that changes it and nothing else. The rows are neither copied nor compared; what
/// goes out says the same as if the whole table had been written.
Base::SetValueStatus changeOneCell(ConfigurationDataValue &leaf, const SelectorUrlArrayIndex &index,
                                   const QVariant &value)
{
    const QString &key = Definitions::getKeyDataPropertyValue();
    const QString path =
        QStringLiteral("%1[%2,%3]").arg(key).arg(index.getRowIndex()).arg(index.getColumnIndex());
    const Base::SetValueStatus status = leaf.setPropertyNoSignalEmit(path, value);
    const QVariant content = leaf.getValue();
    Q_EMIT leaf.propertyChanged(key, content);
    Q_EMIT leaf.propertyChanged();
    Q_EMIT leaf.valueChanged(content);
    return status;
}

/// Loads the array that @p url names a cell of. In @p array a flat list stays one, unless its class
/// makes a table of it.
bool loadArray(const QString &url, const Base::BaseClassSharedPointer &root,
               ArrayDataTypeWrapper &array, QString &urlWithoutIndex, SelectorUrlArrayIndex &index)
{
    if (root.isNull()) {
        return false;
    }
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, urlWithoutIndex);
    // The normal end for every plain URL.
    if (!index.isValid()
        || ConfigurationAndProcessDataTools::getDataType(urlWithoutIndex, root)
               != Definitions::getKeyDataTypeArray()) {
        return false;
    }
    return array.resetRootObject(root, urlWithoutIndex);
}

/// As a table has it, in which each entry of a flat list is a row.
QVariantList rowOf(const ArrayDataTypeWrapper &array, quint32 row)
{
    const QVector<unsigned int> sizes = array.getArrayType();
    if (sizes.size() != 1) {
        return array.getInnerArrayValues({row});
    }
    return row < sizes.first()
               ? QVariantList{array.getArrayValueContent().at(static_cast<int>(row))}
               : QVariantList();
}

} // namespace

QVariant ConfigurationAndProcessDataTools::extractConfigValueWithArrayIndexUrl(
    const QString &url, const BaseClassSharedPointer &root)
{
    if (!namesCell(url)) {
        return {};
    }
    // No table, which would make a row of every entry of a flat list for the sake of one.
    ArrayDataTypeWrapper array{QVariantList(), QVariantList()};
    QString urlWithoutIndex;
    SelectorUrlArrayIndex index;
    if (!loadArray(url, root, array, urlWithoutIndex, index)) {
        return {};
    }
    return partOfRow(rowOf(array, index.getRowIndex()), index.getColumnIndex(), 1).value(0);
}

Base::SetValueStatus ConfigurationAndProcessDataTools::setConfigValueWithArrayIndexUrl(
    const QString &url, BaseClassSharedPointer root, const QVariant &value)
{
    if (!namesCell(url)) {
        return Base::SetValueTargetMissing;
    }
    QString urlWithoutIndex;
    SelectorUrlArrayIndex index;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, urlWithoutIndex);
    const auto ownLeaf = findOwnLeaf(root, urlWithoutIndex);
    const CellWrite effect = ownLeaf.isNull() ? CellWrite::Other
                                              : effectOfWrite(*ownLeaf, index, value);
    if (effect == CellWrite::ChangesNothing) {
        return Base::SetValueUnchanged;
    }
    if (effect == CellWrite::ChangesOneCell) {
        return changeOneCell(*ownLeaf, index, value);
    }
    Array2dDataTypeWrapper wrapper{QVariantList(), QVariantList()};
    if (!fetchArrayHandleWithIndexes(url, root, wrapper, urlWithoutIndex, index)
        || !wrapper.setCellValue(index.getRowIndex(), index.getColumnIndex(), value)) {
        return Base::SetValueTargetMissing;
    }
    const QSharedPointer<ConfigurationDataValue> leaf = root->getLeafConfigurationData(
        urlWithoutIndex);
    return leaf.isNull() ? Base::SetValueTargetMissing
                         : leaf->setValue(QVariant(wrapper.getArrayValueContent()));
}

bool ConfigurationAndProcessDataTools::fetchArrayHandleWithIndexes(
    const QString &url, const BaseClassSharedPointer &root, Array2dDataTypeWrapper &wrapper,
    QString &urlWithoutIndex, SelectorUrlArrayIndex &index)
{
    return loadArray(url, root, wrapper, urlWithoutIndex, index);
}
