#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/RowPart_p.h"

#include <QDebug>

#include <limits>

using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

constexpr unsigned int columnDimension = 1;

/// A flat list as a table of one column.
QVariantList asColumn(const QVariantList &values)
{
    QVariantList rows;
    rows.reserve(values.size());
    for (const QVariant &value : values) {
        rows.append(QVariant(QVariantList{value}));
    }
    return rows;
}

/// Whether a range of columns lies inside a row, without the sum that could wrap around.
bool fits(std::size_t cellCount, std::size_t columnOffset, std::size_t numberOfColumns)
{
    return numberOfColumns <= cellCount && columnOffset <= cellCount - numberOfColumns;
}

} // namespace

QVariantList partOfRow(const QVariantList &cells, std::size_t columnOffset,
                       std::size_t numberOfColumns)
{
    if (cells.isEmpty()) {
        qWarning() << "Row index out of bounds or empty row detected";
        return {};
    }
    if (!fits(static_cast<std::size_t>(cells.size()), columnOffset, numberOfColumns)) {
        qWarning() << "Column index out of bounds" << cells.size()
                   << quint64{columnOffset} + numberOfColumns;
        return {};
    }
    return cells.mid(static_cast<int>(columnOffset), static_cast<int>(numberOfColumns));
}

Array2dDataTypeWrapper::Array2dDataTypeWrapper(const BaseClassSharedPointer &leaf)
    : ArrayDataTypeWrapper({}, {})
{
    resetLeaf(leaf);
    extractDynamicArraysProperties(leaf);
}

Array2dDataTypeWrapper::Array2dDataTypeWrapper(const BaseClassSharedPointer &root,
                                               const QString &url)
    : ArrayDataTypeWrapper({}, {})
{
    reset(root, url);
}

Array2dDataTypeWrapper::Array2dDataTypeWrapper(const QVariantList &values, const QVariantList &info)
    : ArrayDataTypeWrapper(values, info)
{
    if (m_arrayType.size() == 1) {
        Array2dDataTypeWrapper::reset(values, info);
    }
}

Array2dDataTypeWrapper::Array2dDataTypeWrapper(const QVariantList & /*values*/,
                                               const QVariantList & /*info*/,
                                               std::size_t minNumberOfRows,
                                               std::size_t maxNumberOfRows)
    : ArrayDataTypeWrapper({}, {})
    , m_dynamicArray(true)
    , m_minNumberOfRows(static_cast<quint32>(minNumberOfRows))
    , m_maxNumberOfRows(static_cast<quint32>(maxNumberOfRows))
{
}

Array2dDataTypeWrapper::~Array2dDataTypeWrapper() = default;

bool Array2dDataTypeWrapper::reset(const BaseClassSharedPointer &root, const QString &url)
{
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the argument may be the member.
    const BaseClassSharedPointer keptRoot = root;
    m_rootObject.clear();
    ArrayDataTypeWrapper::resetRootObject(keptRoot, url);
    if (keptRoot.isNull()) {
        return false;
    }
    const BaseClassSharedPointer leaf = keptRoot->getLeaf(url);
    if (leaf.isNull()) {
        return false;
    }
    extractDynamicArraysProperties(leaf);
    return true;
}

bool Array2dDataTypeWrapper::reset(const QVariantList &values, const QVariantList &info)
{
    const bool isReset = ArrayDataTypeWrapper::reset(values, info);
    return m_arrayType.size() == 1 ? ArrayDataTypeWrapper::reset(asColumn(values), info) : isReset;
}

void Array2dDataTypeWrapper::extractDynamicArraysProperties(const BaseClassSharedPointer &leaf)
{
    if (leaf.isNull() || !leaf->hasProperty(Definitions::getKeyDataPropertyArrayHasDynamicRows())) {
        return;
    }
    const QVariant isDynamic = leaf->getProperty(
        Definitions::getKeyDataPropertyArrayHasDynamicRows());
    if (isDynamic.canConvert(QMetaType::Bool)) {
        m_dynamicArray = isDynamic.toBool();
    }
    const QVariant minRows = leaf->getProperty(Definitions::getKeyDataPropertyArrayMinRows());
    if (minRows.canConvert(QMetaType::Int)) {
        m_minNumberOfRows = static_cast<quint32>(minRows.toInt());
    }
    const QVariant maxRows = leaf->getProperty(Definitions::getKeyDataPropertyArrayMaxRows());
    if (maxRows.canConvert(QMetaType::Int)) {
        m_maxNumberOfRows = static_cast<quint32>(maxRows.toInt());
    }
}

unsigned int Array2dDataTypeWrapper::getNumberOfRows() const
{
    return m_arrayType.value(0, 0);
}

unsigned int Array2dDataTypeWrapper::getNumberOfColumns() const
{
    return m_arrayType.value(1, 0);
}

QVariantList Array2dDataTypeWrapper::getRowValues(std::size_t row) const
{
    if (m_arrayType.size() != 2 || row > std::numeric_limits<unsigned int>::max()) {
        return {};
    }
    return getInnerArrayValues({static_cast<unsigned int>(row)});
}

QVariantList Array2dDataTypeWrapper::getRowValues(std::size_t row, std::size_t columnOffset,
                                                  std::size_t numberOfColumns) const
{
    return partOfRow(getRowValues(row), columnOffset, numberOfColumns);
}

QVariant Array2dDataTypeWrapper::getCellValue(std::size_t row, std::size_t column) const
{
    return getRowValues(row, column, 1).value(0);
}

QVariantList Array2dDataTypeWrapper::getColumnValues(std::size_t column) const
{
    if (m_arrayType.size() != 2 || column >= m_arrayType.at(1)) {
        return {};
    }
    QVariantList values;
    for (unsigned int row = 0; row < m_arrayType.at(0); ++row) {
        values.append(getRowValues(row).at(static_cast<int>(column)));
    }
    return values;
}

QString Array2dDataTypeWrapper::getColumnDataType(std::size_t column)
{
    if (m_arrayInfo.size() < 2) {
        qWarning() << "Array is no 2 dim Array";
        return {};
    }
    const QVariantList types = getArrayInfo(columnDimension, Definitions::getKeyDataPropertyType());
    if (column >= static_cast<std::size_t>(types.size())) {
        qWarning() << "Too large column selected" << quint64{column};
        return {};
    }
    return types.at(static_cast<int>(column)).toString();
}

QStringList Array2dDataTypeWrapper::getColumnUnitTypes() const
{
    QStringList unitTypes;
    const QVariantList columns = getArrayInfo(columnDimension);
    for (const QVariant &column : columns) {
        if (column.type() == QVariant::Map) {
            unitTypes.append(
                column.toMap().value(Definitions::getKeyDataPropertyUnitType()).toString());
        }
    }
    return unitTypes;
}

QVariantList Array2dDataTypeWrapper::getInfoAllColumns(const QString &key) const
{
    return getArrayInfo(columnDimension, key);
}

bool Array2dDataTypeWrapper::isCellValueNoInput(std::size_t row, std::size_t column)
{
    if (m_arrayInfo.size() < 2) {
        return false;
    }
    if (column >= static_cast<std::size_t>(m_arrayInfo.at(1).toList().size())) {
        qWarning() << "Column too large";
        return false;
    }
    if (getColumnDataType(column) != Definitions::getKeyDataTypeSelector()) {
        return false;
    }
    return ConfigurationAndProcessDataTools::isNoInputValueIndicatorSet(getCellValue(row, column));
}

bool Array2dDataTypeWrapper::setRowValues(const QVariantList &values, std::size_t row)
{
    if (m_arrayType.size() != 2 || row >= m_arrayType.at(0)
        || static_cast<std::size_t>(values.size()) != m_arrayType.at(1)) {
        return false;
    }
    m_arrayValueContent[static_cast<int>(row)] = QVariant(values);
    return true;
}

bool Array2dDataTypeWrapper::setRowValues(const QVariantList &values, std::size_t row,
                                          std::size_t columnOffset, std::size_t numberOfColumns)
{
    QVariantList cells = getRowValues(row);
    if (cells.isEmpty()) {
        qWarning() << "Destination row is empty, row number given" << quint64{row}
                   << ",max row numbers in array" << getNumberOfRows();
        return false;
    }
    if (numberOfColumns != static_cast<std::size_t>(values.size())
        || !fits(static_cast<std::size_t>(cells.size()), columnOffset, numberOfColumns)) {
        qWarning() << "No valid column selections given"
                   << "given (columnOffset)" << quint64{columnOffset} << "(numberOfColumns)"
                   << quint64{numberOfColumns} << "given number of columns in source"
                   << values.size() << "matrix type is" << getNumberOfRows() << "x"
                   << getNumberOfColumns();
        return false;
    }
    for (int i = 0; i < values.size(); ++i) {
        cells[static_cast<int>(columnOffset) + i] = values.at(i);
    }
    if (!setRowValues(cells, row)) {
        qWarning() << "row saving fails";
        return false;
    }
    return true;
}

bool Array2dDataTypeWrapper::setCellValue(std::size_t row, std::size_t column, QVariant value)
{
    // NOLINTNEXTLINE(performance-unnecessary-value-param): a list copies it in any case
    return setRowValues({value}, row, column, 1);
}

bool Array2dDataTypeWrapper::addNewRow()
{
    if (!m_dynamicArray) {
        qWarning() << "Array is not dynamic";
        return false;
    }
    // Lets one row more in than the maximum says; applications count on it.
    if (getNumberOfRows() > m_maxNumberOfRows) {
        qWarning() << "Max number of rows exceeded" << m_maxNumberOfRows;
        return false;
    }
    const QVariantList defaults = getInfoAllColumns(Definitions::getKeyDataPropertyValue());
    // Without cells there is no dimension to count up, and an element may well have neither cells
    // nor columns.
    if (m_arrayType.isEmpty()
        || static_cast<unsigned int>(defaults.size()) != getNumberOfColumns()) {
        qWarning() << "Number of columns are incorrect" << defaults;
        return false;
    }
    m_arrayValueContent.append(QVariant(defaults));
    ++m_arrayType[0];
    return true;
}

bool Array2dDataTypeWrapper::setColumnUnitType(std::size_t column, const QString &unitType)
{
    QStringList unitTypes = getColumnUnitTypes();
    if (column >= static_cast<std::size_t>(unitTypes.size())) {
        qWarning() << "column Number to large (max)" << unitTypes.size() << "is" << quint64{column};
        return false;
    }
    const int index = static_cast<int>(column);
    if (unitTypes.at(index).isEmpty()) {
        qWarning() << "Try to overide an empty unittype" << quint64{column} << unitType;
        return false;
    }
    unitTypes[index] = unitType;
    return setColumnUnitTypes(unitTypes);
}

bool Array2dDataTypeWrapper::setColumnUnitTypes(const QStringList &unitTypes)
{
    if (m_arrayInfo.size() < 2 || unitTypes.isEmpty()
        || unitTypes.size() != m_arrayInfo.at(1).toList().size()) {
        return false;
    }
    QVariantList values;
    values.reserve(unitTypes.size());
    for (const QString &unitType : unitTypes) {
        values.append(unitType.isEmpty() ? QVariant() : QVariant(unitType));
    }
    return setArrayInfo(columnDimension, Definitions::getKeyDataPropertyUnitType(), values);
}
