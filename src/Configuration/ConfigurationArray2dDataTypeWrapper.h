#pragma once

#include "Configuration/ConfigurationArrayDataTypeWrapper.h"

#include <QStringList>

#include <cstddef>

/// An array element as a table: rows, columns with data type and unit type, and rows that can be
/// added where the element allows it.
///
/// A flat list becomes a table of one column, and goes back in that shape. Changes stay in the
/// wrapper until they are written back.
class TESSEL_EXPORT Array2dDataTypeWrapper : public ArrayDataTypeWrapper
{
public:
    /// Reads and changes; writes back only where a leaf or a root is named.
    explicit Array2dDataTypeWrapper(const BaseClassSharedPointer &leaf);
    /// Loads the array at @p url of the tree and can write it back there.
    Array2dDataTypeWrapper(const BaseClassSharedPointer &root, const QString &url);
    /// A table of fixed size that knows no leaf to write back to.
    Array2dDataTypeWrapper(const QVariantList &values, const QVariantList &info);
    /// A table with dynamic rows. It is empty until reset(values, info): both lists given here are
    /// not taken over.
    Array2dDataTypeWrapper(const QVariantList &values, const QVariantList &info,
                           std::size_t minNumberOfRows, std::size_t maxNumberOfRows);
    ~Array2dDataTypeWrapper() override;

    /// True as soon as there is a leaf at @p url, also if it is no array.
    bool reset(const BaseClassSharedPointer &root, const QString &url);
    /// Loads cells and information from lists. Always true.
    bool reset(const QVariantList &values, const QVariantList &info) override;
    /// Takes the mark of dynamic rows and their bounds from @p leaf, as far as it has them.
    void extractDynamicArraysProperties(const BaseClassSharedPointer &leaf);

    /// 0 for an array without cells.
    unsigned int getNumberOfRows() const;
    /// Columns of the first row; 0 for an array without rows.
    unsigned int getNumberOfColumns() const;
    /// Whether addNewRow() may be tried.
    bool isDynamicArray() const { return m_dynamicArray; }
    /// Held and handed out, enforced nowhere.
    unsigned int getMinNumberOfRows() const { return m_minNumberOfRows; }
    /// Looked at by addNewRow() alone.
    unsigned int getMaxNumberOfRows() const { return m_maxNumberOfRows; }

    /// The cells of a row; empty outside the table.
    QVariantList getRowValues(std::size_t row) const;
    /// As getRowValues().
    QVariantList operator()(std::size_t row) const { return getRowValues(row); }
    /// A part of a row; empty, with a warning, where it does not fit the row.
    QVariantList getRowValues(std::size_t row, std::size_t columnOffset,
                              std::size_t numberOfColumns) const;
    using ArrayDataTypeWrapper::getCellValue;
    /// One cell, both indices from 0; invalid outside the table.
    QVariant getCellValue(std::size_t row, std::size_t column) const;
    /// As getCellValue().
    QVariant operator()(std::size_t row, std::size_t column) const
    {
        return getCellValue(row, column);
    }
    /// The cells of a column, from the first row to the last.
    QVariantList getColumnValues(std::size_t column) const;
    /// The `type` in the information of a column; empty, with a warning, outside the table.
    QString getColumnDataType(std::size_t column);
    /// The `unitType` of each column, an empty text where a column has none.
    QStringList getColumnUnitTypes() const;
    /// One key of the information of each column.
    QVariantList getInfoAllColumns(const QString &key) const;
    /// True for selector columns only.
    bool isCellValueNoInput(std::size_t row, std::size_t column);

    /// Replaces a row of the working copy; as many values as there are columns.
    bool setRowValues(const QVariantList &values, std::size_t row);
    /// Replaces a part of a row. False, with a warning and no change, where it does not fit.
    bool setRowValues(const QVariantList &values, std::size_t row, std::size_t columnOffset,
                      std::size_t numberOfColumns);
    /// Replaces one cell of the working copy, without conversion.
    bool setCellValue(std::size_t row, std::size_t column, QVariant value);
    /// Appends a row of the columns' default values. The last row that it lets in makes one more
    /// than the maximum. A table without rows cannot grow.
    bool addNewRow();
    /// Replaces the unit type of a column that has one.
    bool setColumnUnitType(std::size_t column, const QString &unitType);
    /// Replaces the unit types of all columns, one text a column.
    bool setColumnUnitTypes(const QStringList &unitTypes);

private:
    bool m_dynamicArray = false;
    quint32 m_minNumberOfRows = 0;
    quint32 m_maxNumberOfRows = 0;
};
