#include "configuration/ConfigurationTable.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "text/CsvText.h"
#include "text/Failure.h"
#include "text/Table.h"

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

constexpr unsigned int columnDimension = 1;

[[noreturn]] void refuse(ExitCode code, const QString &url, const QString &reason)
{
    throw Failure{code, QStringLiteral("'%1': %2").arg(url, reason)};
}

QVariant valueOfCell(const QString &text, const ConfigurationColumn &column, const QString &place)
{
    if (text.isEmpty() && (column.rules.isNumber() || column.rules.isSelector())) {
        return QVariant::fromValue(nullptr);
    }
    return asCell(configurationValue(text, column.rules, place), column.rules);
}

QVariantList rowFrom(const QStringList &cells, const QVector<ConfigurationColumn> &columns,
                     const QString &place)
{
    if (cells.size() != columns.size()) {
        refuse(ExitCode::InputOutputFile, place,
               QStringLiteral("%1 cells; the array has %2 columns")
                   .arg(cells.size())
                   .arg(columns.size()));
    }
    QVariantList row;
    for (int i = 0; i < columns.size(); ++i) {
        const QString cellPlace = place + QLatin1String(", ") + columns[i].title;
        row.append(valueOfCell(cells[i], columns[i], cellPlace));
    }
    return row;
}

} // namespace

ConfigurationTable::ConfigurationTable(const ConfigurationLeaf &leaf) : m_leaf(leaf)
{
    if (!leaf.isArray()) {
        refuse(ExitCode::Refused, leaf.url,
               QStringLiteral("is no array but a %1")
                   .arg(leaf.text(Definitions::getKeyDataPropertyType())));
    }
    Array2dDataTypeWrapper wrapper(leaf.element);
    const QVariant value = leaf.element->getValue();
    const QVariantList descriptions = wrapper.getArrayInfo(columnDimension);
    if (value.userType() != QMetaType::QVariantList || descriptions.isEmpty()) {
        refuse(ExitCode::InputOutputFile, leaf.url,
               QStringLiteral("the array has no description of its columns"));
    }
    m_rows = wrapper.getArrayValueContent();
    readColumns(descriptions);
    checkRows();
}

void ConfigurationTable::readColumns(const QVariantList &descriptions)
{
    for (const QVariant &entry : descriptions) {
        const QVariantMap description = entry.toMap();
        QString title = description.value(Definitions::getKeyDataPropertyLabelTextId()).toString();
        if (title.isEmpty()) {
            title = QStringLiteral("column %1").arg(m_columns.size());
        }
        m_columns.append({title,
                          description.value(Definitions::getKeyDataPropertyUnitType()).toString(),
                          rulesOf(description)});
    }
}

void ConfigurationTable::checkRows() const
{
    for (int row = 0; row < m_rows.size(); ++row) {
        const bool isList = m_rows[row].userType() == QMetaType::QVariantList;
        if (!isList || m_rows[row].toList().size() != m_columns.size()) {
            refuse(ExitCode::InputOutputFile, m_leaf.url,
                   QStringLiteral("row %1 has %2 cells, %3 columns are described")
                       .arg(row)
                       .arg(m_rows[row].toList().size())
                       .arg(m_columns.size()));
        }
    }
}

void ConfigurationTable::checkCell(quint32 row, quint32 column) const
{
    if (row >= static_cast<quint32>(m_rows.size())
        || column >= static_cast<quint32>(m_columns.size())) {
        refuse(ExitCode::NotFound, m_leaf.url,
               QStringLiteral("no cell %1,%2; the array has %3 rows and %4 columns, counted from 0")
                   .arg(row)
                   .arg(column)
                   .arg(m_rows.size())
                   .arg(m_columns.size()));
    }
}

QVariant ConfigurationTable::cell(quint32 row, quint32 column) const
{
    return m_rows.value(static_cast<int>(row)).toList().value(static_cast<int>(column));
}

void ConfigurationTable::checkRowCount(int count) const
{
    const auto property = [this](const QString &key) { return m_leaf.element->getProperty(key); };
    int least = m_rows.size();
    int most = m_rows.size();
    if (property(Definitions::getKeyDataPropertyArrayHasDynamicRows()).toBool()) {
        const QVariant maximum = property(Definitions::getKeyDataPropertyArrayMaxRows());
        least = property(Definitions::getKeyDataPropertyArrayMinRows()).toInt();
        most = maximum.isNull() ? count : maximum.toInt();
    }
    if (count >= least && count <= most) {
        return;
    }
    const QString allowed = least == most ? QStringLiteral("exactly %1 rows").arg(least)
                                          : QStringLiteral("%1 to %2 rows").arg(least).arg(most);
    refuse(ExitCode::Refused, m_leaf.url,
           QStringLiteral("takes %1, not %2").arg(allowed).arg(count));
}

QStringList ConfigurationTable::titles() const
{
    QStringList titles;
    for (const auto &column : m_columns) {
        titles.append(column.title);
    }
    return titles;
}

QStringList ConfigurationTable::rowTexts(int row) const
{
    const QVariantList cells = m_rows.value(row).toList();
    QStringList texts;
    for (int i = 0; i < cells.size(); ++i) {
        texts.append(configurationText(cells[i], m_columns[i].rules));
    }
    return texts;
}

QString alignedText(const ConfigurationTable &table)
{
    QVector<Table::Column> columns{{QStringLiteral("ROW"), Table::Alignment::Left}};
    QStringList types{QStringLiteral("type")};
    QStringList unitTypes{QStringLiteral("unit")};
    for (const auto &column : table.columns()) {
        columns.append({column.title, column.rules.isNumber() ? Table::Alignment::Right
                                                              : Table::Alignment::Left});
        types.append(column.rules.type);
        unitTypes.append(column.unitType);
    }
    Table text(columns);
    text.addRow(types);
    text.addRow(unitTypes);
    for (int row = 0; row < table.rows().size(); ++row) {
        text.addRow(QStringList(QString::number(row)) + table.rowTexts(row));
    }
    return text.lines().join(QLatin1Char('\n')) + QLatin1Char('\n');
}

QString csvText(const ConfigurationTable &table)
{
    QString text = csvLine(table.titles());
    for (int row = 0; row < table.rows().size(); ++row) {
        text += csvLine(table.rowTexts(row));
    }
    return text;
}

QVariantList rowsFromCsv(const QString &path, const ConfigurationTable &table)
{
    QVector<CsvRecord> records = readCsv(path);
    if (!records.isEmpty() && records.constFirst().cells == table.titles()) {
        records.removeFirst();
    }
    QVariantList rows;
    for (const auto &record : std::as_const(records)) {
        const QString place = path + QStringLiteral(" line %1").arg(record.line);
        rows.append(QVariant(rowFrom(record.cells, table.columns(), place)));
    }
    table.checkRowCount(rows.size());
    return rows;
}
