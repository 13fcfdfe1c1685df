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
    Array2dDataTypeWrapper(const BaseClassSharedPointer &root, const QString &url);
    Array2dDataTypeWrapper(const QVariantList &values, const QVariantList &info);
    /// A table with dynamic rows. It is empty until reset(values, info): both lists given here are
    /// not taken over.
    Array2dDataTypeWrapper(const QVariantList &values, const QVariantList &info,
                           std::size_t minNumberOfRows, std::size_t maxNumberOfRows);
    ~Array2dDataTypeWrapper() override;

    /// True as soon as there is a leaf at @p url, also if it is no array.
    bool reset(const BaseClassSharedPointer &root, const QString &url);
    bool reset(const QVariantList &values, const QVariantList &info) override;
    /// Takes the mark of dynamic rows and their bounds from @p leaf, as far as it has them.
    void extractDynamicArraysProperties(const BaseClassSharedPointer &leaf);

    unsigned int getNumberOfRows() const;
    unsigned int getNumberOfColumns() const;
    bool isDynamicArray() const { return m_dynamicArray; }
    /// Held and handed out, enforced nowhere.
    unsigned int getMinNumberOfRows() const { return m_minNumberOfRows; }
    unsigned int getMaxNumberOfRows() const { return m_maxNumberOfRows; }

    QVariantList getRowValues(std::size_t row) const;
    QVariantList operator()(std::size_t row) const { return getRowValues(row); }
    QVariantList getRowValues(std::size_t row, std::size_t columnOffset,
                              std::size_t numberOfColumns) const;
    using ArrayDataTypeWrapper::getCellValue;
    QVariant getCellValue(std::size_t row, std::size_t column) const;
    QVariant operator()(std::size_t row, std::size_t column) const
    {
        return getCellValue(row, column);
    }
    QVariantList getColumnValues(std::size_t column) const;
    QString getColumnDataType(std::size_t column);
    QStringList getColumnUnitTypes() const;
    QVariantList getInfoAllColumns(const QString &key) const;
    /// True for selector columns only.
    bool isCellValueNoInput(std::size_t row, std::size_t column);

    bool setRowValues(const QVariantList &values, std::size_t row);
    bool setRowValues(const QVariantList &values, std::size_t row, std::size_t columnOffset,
                      std::size_t numberOfColumns);
    bool setCellValue(std::size_t row, std::size_t column, QVariant value);
    /// Appends a row of the columns' default values. The last row that it lets in makes one more
    /// than the maximum. A table without rows cannot grow.
    bool addNewRow();
    /// Replaces the unit type of a column that has one.
    bool setColumnUnitType(std::size_t column, const QString &unitType);
    bool setColumnUnitTypes(const QStringList &unitTypes);

private:
    bool m_dynamicArray = false;
    quint32 m_minNumberOfRows = 0;
    quint32 m_maxNumberOfRows = 0;
};
