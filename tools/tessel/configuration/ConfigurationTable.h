#pragma once

#include "configuration/ConfigurationValueText.h"

#include <QString>
#include <QVariantList>
#include <QVector>

/// One column of an array.
struct ConfigurationColumn
{
    QString title;
    QString unitType;
    ConfigurationValueRules rules;
};

/// An array of a configuration as rows and described columns.
///
/// A Failure of InputOutputFile says what keeps the array from being a table: no description of its
/// columns, rows of different length.
class ConfigurationTable
{
public:
    explicit ConfigurationTable(const ConfigurationLeaf &leaf);

    const ConfigurationLeaf &leaf() const { return m_leaf; }
    const QVector<ConfigurationColumn> &columns() const { return m_columns; }
    /// Each a list with one value a column.
    const QVariantList &rows() const { return m_rows; }

    /// Refuses a cell that is not there.
    void checkCell(quint32 row, quint32 column) const;
    QVariant cell(quint32 row, quint32 column) const;
    /// Refuses a number of rows that the array does not allow.
    void checkRowCount(int count) const;

    QStringList titles() const;
    QStringList rowTexts(int row) const;

private:
    void readColumns(const QVariantList &descriptions);
    void checkRows() const;

    ConfigurationLeaf m_leaf;
    QVector<ConfigurationColumn> m_columns;
    QVariantList m_rows;
};

/// For a reader: the titles, the types and unit types of the columns, and the numbered rows.
QString alignedText(const ConfigurationTable &table);
/// For programs: the titles, and the rows.
QString csvText(const ConfigurationTable &table);
/// The rows in a CSV file, with or without the titles. All of them fit the table, or the file is
/// refused.
QVariantList rowsFromCsv(const QString &path, const ConfigurationTable &table);
