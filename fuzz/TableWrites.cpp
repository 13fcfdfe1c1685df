#include "TableWrites.h"

#include "Companion/SelectorUrlArrayIndex.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataValue.h"
#include "FuzzTarget.h"

#include <algorithm>

namespace {

using Element = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// A row that is shorter than the first ends the process that asks for a column, as documented.
bool hasShortRow(const Array2dDataTypeWrapper &table)
{
    const QVariantList rows = table.getArrayValueContent();
    return std::any_of(rows.begin(), rows.end(), [&table](const QVariant &row) {
        return static_cast<unsigned int>(row.toList().size()) < table.getNumberOfColumns();
    });
}

void readAll(Array2dDataTypeWrapper &table, quint32 row, quint32 column)
{
    require(table(row, column) == table.getCellValue(row, column), "a cell has one value");
    require(row < table.getNumberOfRows() || table.getRowValues(row).isEmpty(),
            "there is no row behind the last");
    table.getRowValues(row, column, 1);
    table.getRowValues(column, row, column);
    if (!hasShortRow(table)) {
        table.getColumnValues(column);
    }
    table.getColumnDataType(column);
    table.getColumnUnitTypes();
    table.getInfoAllColumns(QStringLiteral("type"));
    table.isCellValueNoInput(row, column);
    table.getInnerArrayValues({row});
    table.getCellValue(QVector<unsigned int>{row, column});
    table.getArrayInfo(row, QStringLiteral("unitType"));
}

void checkCell(Array2dDataTypeWrapper &table, quint32 row, quint32 column, const QVariant &value)
{
    const QVariantList before = table.getArrayValueContent();
    if (table.setCellValue(row, column, value)) {
        require(table.getCellValue(row, column) == value, "a cell that was set is read back");
    } else {
        require(table.getArrayValueContent() == before, "a refused cell leaves the table alone");
    }
}

void checkRows(Array2dDataTypeWrapper &table, quint32 row, const QVariant &value)
{
    const QVariantList cells{value, value, value};
    if (table.setRowValues(cells, row)) {
        require(table.getRowValues(row) == cells, "a row that was set is read back");
    }
    table.setRowValues({value, value}, row, 1, 2);
    const unsigned int rows = table.getNumberOfRows();
    const bool isAdded = table.addNewRow();
    require(table.getNumberOfRows() == rows + (isAdded ? 1 : 0), "a new row is one row more");
}

void checkUnits(Array2dDataTypeWrapper &table, quint32 column, const QVariant &value)
{
    const QString unit = value.toString();
    if (table.setColumnUnitType(column, unit)) {
        require(table.getColumnUnitTypes().value(static_cast<int>(column)) == unit,
                "a unit type that was set is read back");
    }
    table.setColumnUnitTypes({unit, unit, unit});
    table.setArrayInfo(1, QStringLiteral("type"), {value, value, value});
    table.setArrayInfo(column, QVariantList{value});
}

void checkWriteBack(const Element &root, const QString &url, Array2dDataTypeWrapper &table)
{
    if (!table.setArrayContentTotal()) {
        return;
    }
    const auto leaf = root->getLeafConfigurationData(url);
    require(!leaf.isNull(), "a table is written back to its leaf");
    require(leaf->getValue().toList() == table.getArrayValueContent(),
            "a table that was written back stands in the tree");
}

} // namespace

void checkTable(const Element &root, const QString &url, const QVariant &value)
{
    SelectorUrlArrayIndex index;
    QString tableUrl;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, tableUrl);
    const quint32 row = index.getRowIndex();
    const quint32 column = index.getColumnIndex();
    Array2dDataTypeWrapper table(root, tableUrl);

    readAll(table, row, column);
    checkCell(table, row, column, value);
    checkRows(table, row, value);
    checkUnits(table, column, value);
    readAll(table, row, column);
    checkWriteBack(root, tableUrl, table);
}
