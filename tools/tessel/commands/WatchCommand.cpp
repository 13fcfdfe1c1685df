#include "Access/ProcessDataWatcher.h"
#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "commands/Commands.h"
#include "live/LiveRegion.h"
#include "screen/ValueScreen.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/SignalWait.h"
#include "text/Table.h"
#include "text/Terminal.h"
#include "values/StateName.h"
#include "values/ValueText.h"

#include <QDateTime>

#include <algorithm>
#include <csignal>
#include <limits>
#include <memory>
#include <optional>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Clock = std::chrono::steady_clock;

constexpr int shortestInterval = 1;
constexpr int longestInterval = 3600 * 1000;
constexpr int usualInterval = 1000;

/// Shows one set after the other.
class SetView
{
public:
    virtual ~SetView() = default;
    virtual void show(const QVector<ProcessValue> &values) = 0;
    virtual void handle(SignalWait::Event event) = 0;
};

/// A line a value, with its time, for a file or another program.
class LineView : public SetView
{
public:
    explicit LineView(const QVector<Leaf> &leaves) : m_leaves(leaves) { }

    void show(const QVector<ProcessValue> &values) override
    {
        const QString time = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
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

    void handle(SignalWait::Event event) override
    {
        if (event == SignalWait::Event::Stop) {
            ::raise(SIGSTOP);
        }
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

std::unique_ptr<SetView> makeView(const DescriptionSource &description, const QVector<Leaf> &leaves,
                                  const QString &pace)
{
    if (!isOutputTerminal()) {
        return std::make_unique<LineView>(leaves);
    }
    const QString title =
        QStringLiteral("%1, %2, Ctrl-C ends").arg(printable(description.key()), pace);
    return std::make_unique<TableView>(leaves, title);
}

/// Waits for the next set. False if the program is to end.
bool waitForNext(SignalWait &signals, SetView &view, Clock::time_point next)
{
    while (true) {
        const SignalWait::Event event = signals.waitUntil(next);
        if (event == SignalWait::Event::TimePassed) {
            return true;
        }
        if (event == SignalWait::Event::End) {
            return false;
        }
        view.handle(event);
    }
}

/// Sleeps until a set is published.
class SetArrival
{
public:
    explicit SetArrival(LiveRegion &region)
        : m_region(region)
        , m_watcher(region.manager())
        , m_descriptor(region.descriptorOf(m_watcher))
    {
    }

    /// The newest set, which is then no reason to come back from wait().
    QVector<ProcessValue> read(const QVector<Leaf> &leaves)
    {
        return m_region.read(leaves, m_seen);
    }
    /// False if the program is to end.
    bool wait(SignalWait &signals, SetView &view)
    {
        while (true) {
            const SignalWait::Event event = signals.waitUntilReadable(m_descriptor);
            if (event == SignalWait::Event::End) {
                return false;
            }
            if (event != SignalWait::Event::Readable) {
                view.handle(event);
                continue;
            }
            switch (m_watcher.acknowledge(m_seen)) {
            case ProcessDataWatcher::Result::NewSet: return true;
            case ProcessDataWatcher::Result::TimedOut: break; // It was told with the set before.
            default: m_region.requireCurrent(); return true;
            }
        }
    }

private:
    LiveRegion &m_region;
    ProcessDataWatcher m_watcher;
    quint64 m_seen = 0;
    int m_descriptor;
};

/// At which moments sets are shown.
struct Pace
{
    explicit Pace(const CommandLine &line)
        : isOnChange(line.isSet(QStringLiteral("on-change")))
        , interval(line.number(QStringLiteral("interval"), shortestInterval, longestInterval,
                               isOnChange ? 0 : usualInterval))
    {
    }

    QString text() const
    {
        return isOnChange ? QStringLiteral("on change")
                          : QStringLiteral("every %1 ms").arg(interval);
    }
    /// Counted from when the last one was due; of sets that come by themselves, from when it was shown.
    Clock::time_point next(Clock::time_point last) const
    {
        const std::chrono::milliseconds distance(interval);
        return isOnChange ? Clock::now() + distance : std::max(last + distance, Clock::now());
    }

    bool isOnChange;
    int interval;
};

ExitCode runOnScreen(const CommandLine &line)
{
    for (const auto &option : {QStringLiteral("on-change"), QStringLiteral("count")}) {
        if (line.isSet(option)) {
            throw Failure{ExitCode::WrongUse,
                          QStringLiteral("watch: --tui does not go with --%1; see 'tessel watch "
                                         "--help'")
                              .arg(option)};
        }
    }
    const DescriptionSource description(line.positional(0));
    const QStringList urls = line.positionalsFrom(1);
    // Of a double buffer each set, as far as the screen shows so many.
    const int least = description.isDoubleBuffered() ? shortestInterval : usualInterval;
    const std::chrono::milliseconds interval(
        line.number(QStringLiteral("interval"), shortestInterval, longestInterval, least));
    SignalWait signals(SignalWait::Signals::FullScreen);
    showOnScreen(description, {description.leavesAt(urls), urls, interval}, signals);
    return ExitCode::Done;
}

ExitCode run(const CommandLine &line)
{
    if (line.isSet(QStringLiteral("tui"))) {
        return runOnScreen(line);
    }
    const Pace pace(line);
    const int count = line.number(QStringLiteral("count"), 1, std::numeric_limits<int>::max(), 0);
    const DescriptionSource description(line.positional(0));
    if (pace.isOnChange && description.bufferSize() != 0 && !description.isDoubleBuffered()) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("watch: --on-change needs a double buffer, '%1' describes a "
                                     "single one; see 'tessel watch --help'")
                          .arg(description.path())};
    }
    const QStringList urls = line.positionalsFrom(1);
    QVector<Leaf> leaves = description.leavesAt(urls);
    SignalWait signals(SignalWait::Signals::EndingAndTerminal);
    LiveRegion region(description, LiveRegion::Opening::Attach);
    leaves = region.readable(leaves, urls);

    const auto view = makeView(description, leaves, pace.text());
    std::optional<SetArrival> arrival;
    if (pace.isOnChange) {
        arrival.emplace(region);
    }
    Clock::time_point next = Clock::now();
    for (int shown = 1;; ++shown) {
        view->show(arrival ? arrival->read(leaves) : region.read(leaves));
        next = pace.next(next);
        if (shown == count || !waitForNext(signals, *view, next)
            || (arrival && !arrival->wait(signals, *view))) {
            return ExitCode::Done;
        }
        region.requireCurrent();
    }
}

} // namespace

Command watchCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("watch");
    syntax.summary = QStringLiteral("Show values again and again, each time one consistent set.");
    syntax.positionals = {fileArgument(), urlsArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = -1;
    syntax.options = {
        {QStringLiteral("interval"),
         QStringLiteral("Milliseconds from one set to the next (1000)."), QStringLiteral("MS")},
        {QStringLiteral("on-change"),
         QStringLiteral("Each set when it is published, --interval at least apart.")},
        {QStringLiteral("count"),
         QStringLiteral("End after so many sets; without it SIGINT or SIGTERM ends."),
         QStringLiteral("N")},
        {QStringLiteral("tui"),
         QStringLiteral(
             "The full screen: a tree with filter, pins and a trend; ? tells the keys.")}};
    syntax.examples = QStringLiteral(
        "  tessel watch host.process.json                           a table in place\n"
        "  tessel watch --interval 200 host.process.json cpu load   two nodes, quickly\n"
        "  tessel watch --on-change host.process.json               each set that is published\n"
        "  tessel watch --tui host.process.json                     the full screen\n"
        "  tessel watch --count 60 host.process.json > minute.tsv   time, URL, value, unit, state\n"
        "On a terminal a table is shown in place, in colour unless NO_COLOR is set; otherwise "
        "each\n"
        "value is a line of five fields with tabs between.\n");
    return {syntax, run};
}
