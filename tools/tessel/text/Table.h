#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

/// Rows of text in aligned columns, with a title line.
class Table
{
public:
    enum class Alignment { Left, Right };

    struct Column
    {
        QString title;
        Alignment alignment;
    };

    explicit Table(const QVector<Column> &columns);

    /// One cell a column. Control characters in a cell become visible escapes.
    void addRow(const QStringList &cells);
    /// Widens the columns for a row that is not kept, but asked for by lineOf() later: for a table that is too
    /// long to be held.
    void makeRoomFor(const QStringList &cells);
    QString titleLine() const;
    QString lineOf(const QStringList &cells) const;
    /// Takes all rows away. The columns stay as wide as they were, so that a table which is shown
    /// again and again does not jump.
    void clearRows() { m_rows.clear(); }

    /// The title line and the rows, without line ends and without blanks at the end.
    QStringList lines() const;

private:
    QString line(const QStringList &cells) const;
    /// A cell a column, as it is printed.
    QStringList shown(const QStringList &cells) const;

    QVector<Column> m_columns;
    QVector<int> m_widths;
    QVector<QStringList> m_rows;
};
