#include "Access/ProcessDataWatcher.h"
#include "commands/Commands.h"
#include "commands/SetView.h"
#include "live/LiveRegion.h"
#include "screen/ValueScreen.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/SignalWait.h"
#include "text/Terminal.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int shortestInterval = 1;
constexpr int longestInterval = 3600 * 1000;
constexpr int usualInterval = 1000;

const QLatin1String jsonOption("json");
const QLatin1String terseOption("terse");

[[noreturn]] void refuseUse(const QString &reason)
{
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("watch: %1; see 'tessel watch --help'").arg(reason)};
}

std::unique_ptr<SetView> makeView(const CommandLine &line, const QString &title,
                                  const QVector<Leaf> &leaves)
{
    if (line.isSet(jsonOption)) {
        return jsonView(leaves);
    }
    if (line.isSet(terseOption)) {
        return terseView();
    }
    return isOutputTerminal() ? tableView(leaves, title) : lineView(leaves);
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
    for (const auto &option :
         {QLatin1String("on-change"), QLatin1String("count"), jsonOption, terseOption}) {
        if (line.isSet(option)) {
            refuseUse(QStringLiteral("--tui does not go with --%1").arg(option));
        }
    }
    const int given = line.number(QStringLiteral("interval"), shortestInterval, longestInterval, 0);
    requireScreen();
    const DescriptionSource description(line.positional(0));
    const QStringList urls = line.positionalsFrom(1);
    // Of a double buffer each set, as far as the screen shows so many.
    const int least = description.isDoubleBuffered() ? shortestInterval : usualInterval;
    const std::chrono::milliseconds interval(given != 0 ? given : least);
    SignalWait signals(SignalWait::Signals::FullScreen);
    showOnScreen(description, {description.leavesAt(urls), urls, interval}, signals);
    return ExitCode::Done;
}

ExitCode run(const CommandLine &line)
{
    if (line.isSet(QStringLiteral("tui"))) {
        return runOnScreen(line);
    }
    if (line.isSet(jsonOption) && line.isSet(terseOption)) {
        refuseUse(QStringLiteral("--json does not go with --terse"));
    }
    const Pace pace(line);
    const int count = line.number(QStringLiteral("count"), 1, std::numeric_limits<int>::max(), 0);
    const DescriptionSource description(line.positional(0));
    if (pace.isOnChange && description.bufferSize() != 0 && !description.isDoubleBuffered()) {
        refuseUse(QStringLiteral("--on-change needs a double buffer, '%1' describes a single one")
                      .arg(description.path()));
    }
    const QStringList urls = line.positionalsFrom(1);
    QVector<Leaf> leaves = description.leavesAt(urls);
    SignalWait signals(SignalWait::Signals::EndingAndTerminal);
    LiveRegion region(description, LiveRegion::Opening::Read);
    leaves = region.readable(leaves, urls);

    const auto view = makeView(
        line, QStringLiteral("%1, %2, Ctrl-C ends").arg(printable(description.key()), pace.text()),
        leaves);
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
        {jsonOption, QStringLiteral("Print a JSON object a line and set.")},
        {{QStringLiteral("t"), terseOption},
         QStringLiteral("Print the values alone, a line a set with tabs between.")},
        {QStringLiteral("tui"),
         QStringLiteral(
             "The full screen: a tree with filter, pins and a trend; ? tells the keys.")}};
    syntax.examples = QStringLiteral(
        "  tessel watch host.process.json                           a table in place\n"
        "  tessel watch --interval 200 host.process.json cpu load   two nodes, quickly\n"
        "  tessel watch --on-change host.process.json               each set that is published\n"
        "  tessel watch --tui host.process.json                     the full screen\n"
        "  tessel watch --json --count 60 host.process.json cpu     for programs\n"
        "  tessel watch --count 60 host.process.json > minute.tsv   time, URL, value, unit, state\n"
        "On a terminal a table is shown in place, in colour unless NO_COLOR is set; otherwise "
        "each\n"
        "value is a line of five fields with tabs between.\n");
    return {syntax, run};
}
