#include "commands/SetView.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Table.h"
#include "text/Terminal.h"
#include "values/StateName.h"
#include "values/ValueText.h"

#include <QDateTime>

#include <algorithm>
#include <csignal>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

QString timeText()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
}

/// A line a value, with its time, for a file or another program.
class LineView : public SetView
{
public:
    explicit LineView(const QVector<Leaf> &leaves) : m_leaves(leaves) { }

    void show(const QVector<ProcessValue> &values) override
    {
        const QString time = timeText();
        QString lines;
        for (int i = 0; i < m_leaves.size(); ++i) {
            const QString unit = textProperty(m_leaves[i], Definitions::getKeyDataPropertyUnit());
            const QStringList fields{time, printable(m_leaves[i].url),
                                     printable(valueText(values[i])), printable(unit),
                                     stateName(values[i].getErrorType())};
            lines += fields.join(QLatin1Char('\t')) + QLatin1Char('\n');
        }
        writeOutput(lines);
    }

private:
    QVector<Leaf> m_leaves;
};

/// The values alone, a line a set.
class TerseView : public SetView
{
public:
    void show(const QVector<ProcessValue> &values) override
    {
        QStringList fields;
        for (const auto &value : values) {
            fields.append(printable(valueText(value)));
        }
        writeOutput(fields.join(QLatin1Char('\t')) + QLatin1Char('\n'));
    }
};

/// An object a line and set, for programs.
class JsonView : public SetView
{
public:
    explicit JsonView(const QVector<Leaf> &leaves) : m_leaves(leaves) { }

    void show(const QVector<ProcessValue> &values) override
    {
        QStringList objects;
        for (int i = 0; i < m_leaves.size(); ++i) {
            objects.append(leafJson(m_leaves[i], values[i]));
        }
        writeOutput(
            jsonObject({{QStringLiteral("time"), jsonString(timeText())},
                        {QStringLiteral("values"),
                         QLatin1Char('[') + objects.join(QStringLiteral(", ")) + QLatin1Char(']')}})
            + QLatin1Char('\n'));
    }

private:
    QVector<Leaf> m_leaves;
};

/// A table that is shown in place.
class TableView : public SetView
{
public:
    TableView(const QVector<Leaf> &leaves, const QString &title)
        : m_leaves(leaves)
        , m_title(title)
        , m_table({{QStringLiteral("URL"), Table::Alignment::Left},
                   {QStringLiteral("VALUE"), Table::Alignment::Right},
                   {QStringLiteral("UNIT"), Table::Alignment::Left},
                   {QStringLiteral("STATE"), Table::Alignment::Left}})
        , m_isColoured(isColourWanted())
    {
    }

    void show(const QVector<ProcessValue> &values) override
    {
        m_values = values;
        m_time = QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss"));
        draw();
    }

    void handle(SignalWait::Event event) override
    {
        if (event == SignalWait::Event::Resized) {
            m_picture.startAnew();
        } else if (event == SignalWait::Event::Stop) {
            m_picture.suspend();
        }
        draw();
    }

private:
    void draw();
    QStringList tableLines();
    QString coloured(const QString &line, const char *colour) const;
    bool isErroneous(int row) const;

    QVector<Leaf> m_leaves;
    QString m_title;
    Table m_table;
    bool m_isColoured;
    QVector<ProcessValue> m_values;
    QString m_time;
    TerminalPicture m_picture;
};

void TableView::draw()
{
    const TerminalSize size = TerminalPicture::size();
    // The cursor stands on a line of its own below the picture.
    const int mostRows = std::max(size.rows - 4, 1);
    const QStringList table = tableLines();
    QStringList lines{(m_time + QStringLiteral("  ") + m_title).left(size.columns),
                      coloured(table[0].left(size.columns), "\033[1m")};
    const int hidden = std::max(m_leaves.size() - mostRows, 0);
    for (int row = 0; row < m_leaves.size() - hidden; ++row) {
        const QString line = table[row + 1].left(size.columns);
        lines.append(isErroneous(row) ? coloured(line, "\033[31m") : line);
    }
    if (hidden > 0) {
        lines.append(
            QStringLiteral("... and %1 more; name the URLs to see").arg(hidden).left(size.columns));
    }
    m_picture.show(lines);
}

QStringList TableView::tableLines()
{
    m_table.clearRows();
    for (int i = 0; i < m_leaves.size(); ++i) {
        m_table.addRow({m_leaves[i].url, shortValueText(m_values[i]),
                        textProperty(m_leaves[i], Definitions::getKeyDataPropertyUnit()),
                        stateName(m_values[i].getErrorType())});
    }
    return m_table.lines();
}

QString TableView::coloured(const QString &line, const char *colour) const
{
    return m_isColoured ? QLatin1String(colour) + line + QLatin1String("\033[0m") : line;
}

bool TableView::isErroneous(int row) const
{
    return m_values[row].getErrorType() != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
}

} // namespace

void SetView::handle(SignalWait::Event event)
{
    if (event == SignalWait::Event::Stop) {
        ::raise(SIGSTOP);
    }
}

std::unique_ptr<SetView> lineView(const QVector<Leaf> &leaves)
{
    return std::make_unique<LineView>(leaves);
}

std::unique_ptr<SetView> terseView()
{
    return std::make_unique<TerseView>();
}

std::unique_ptr<SetView> jsonView(const QVector<Leaf> &leaves)
{
    return std::make_unique<JsonView>(leaves);
}

std::unique_ptr<SetView> tableView(const QVector<Leaf> &leaves, const QString &title)
{
    return std::make_unique<TableView>(leaves, title);
}
