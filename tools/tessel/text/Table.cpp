#include "text/Table.h"

#include "text/Output.h"

#include <algorithm>

namespace {

constexpr int columnGap = 2;

/// Characters as a reader counts them: two UTF-16 units outside the basic plane are one.
int width(const QString &text)
{
    const auto seconds = std::count_if(text.cbegin(), text.cend(),
                                       [](QChar unit) { return unit.isLowSurrogate(); });
    return text.size() - static_cast<int>(seconds);
}

} // namespace

Table::Table(const QVector<Column> &columns) : m_columns(columns)
{
    for (const auto &column : columns) {
        m_widths.append(width(column.title));
    }
}

void Table::addRow(const QStringList &cells)
{
    makeRoomFor(cells);
    m_rows.append(shown(cells));
}

void Table::makeRoomFor(const QStringList &cells)
{
    const QStringList row = shown(cells);
    for (int i = 0; i < row.size(); ++i) {
        m_widths[i] = std::max(m_widths[i], width(row[i]));
    }
}

QString Table::titleLine() const
{
    QStringList titles;
    for (const auto &column : m_columns) {
        titles.append(column.title);
    }
    return line(titles);
}

QString Table::lineOf(const QStringList &cells) const
{
    return line(shown(cells));
}

QStringList Table::lines() const
{
    QStringList lines{titleLine()};
    for (const auto &row : m_rows) {
        lines.append(line(row));
    }
    return lines;
}

QStringList Table::shown(const QStringList &cells) const
{
    QStringList row;
    for (int i = 0; i < m_columns.size(); ++i) {
        row.append(printable(cells.value(i)));
    }
    return row;
}

QString Table::line(const QStringList &cells) const
{
    QString line;
    for (int i = 0; i < m_columns.size(); ++i) {
        const QString padding(m_widths[i] - width(cells[i]), QLatin1Char(' '));
        const bool isRight = m_columns[i].alignment == Alignment::Right;
        line += isRight ? padding + cells[i] : cells[i] + padding;
        line += QString(columnGap, QLatin1Char(' '));
    }
    while (line.endsWith(QLatin1Char(' '))) {
        line.chop(1);
    }
    return line;
}
