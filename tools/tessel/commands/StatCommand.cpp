#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDataWatcher.h"
#include "commands/Commands.h"
#include "commands/StatReport.h"
#include "expressions/Duration.h"
#include "live/LiveRegion.h"
#include "text/Output.h"
#include "text/SignalWait.h"
#include "text/Terminal.h"
#include "text/WrongUse.h"

#include <algorithm>
#include <csignal>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr auto command = "stat";
constexpr milliseconds longestTime{24 * 3600 * 1000};
/// Often enough to see somebody who waits, and too seldom to be felt by whoever locks.
constexpr milliseconds lookInterval{100};
constexpr milliseconds drawInterval{500};

milliseconds timeOf(const CommandLine &line)
{
    const QString option = QStringLiteral("for");
    if (!line.isSet(option)) {
        return std::chrono::seconds(10);
    }
    const auto time = std::chrono::duration_cast<milliseconds>(
        durationFromOption(line.value(option)).value_or(milliseconds(0)));
    if (time <= milliseconds(0) || time > longestTime) {
        refuseUse(command,
                  QStringLiteral("--for takes a time such as 500ms, 10s, 5min or 1h, up to 24h, "
                                 "not '%1'")
                      .arg(line.value(option)));
    }
    return time;
}

/// Watches the sets of a region until the time is over or somebody ends it.
class StatWatch
{
public:
    StatWatch(LiveRegion &region, const QString &key, bool isDrawn)
        : m_region(region)
        , m_watcher(region.manager())
        , m_descriptor(region.descriptorOf(m_watcher))
        , m_seen(m_watcher.getGeneration())
        , m_report{key, SetStatistics(m_seen)}
        , m_isDrawn(isDrawn)
    {
    }

    void watch(SignalWait &signals, milliseconds time);
    void print(bool isJson);

private:
    /// False if the region has gone.
    bool take();
    void read();
    void lookAtLock();
    void handle(SignalWait::Event event);
    void doWhatIsDue();
    void draw();

    LiveRegion &m_region;
    ProcessDataWatcher m_watcher;
    int m_descriptor;
    quint64 m_seen;
    StatReport m_report;
    bool m_isDrawn;
    ProcessDataSnapshot m_set;
    TerminalPicture m_picture;
    Clock::time_point m_begin = Clock::now();
    Clock::time_point m_nextLook = m_begin;
    Clock::time_point m_nextPicture = m_begin + drawInterval;
};

void StatWatch::watch(SignalWait &signals, milliseconds time)
{
    const Clock::time_point end = m_begin + time;
    bool isThere = true;
    bool isEnded = false;
    while (isThere && !isEnded && Clock::now() < end) {
        doWhatIsDue();
        const SignalWait::Event event = signals.waitUntilReadable(m_descriptor,
                                                                  std::min(end, m_nextLook));
        isEnded = event == SignalWait::Event::End;
        if (event == SignalWait::Event::Readable) {
            isThere = take();
        } else {
            handle(event);
        }
    }
    m_report.time = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_begin);
}

bool StatWatch::take()
{
    const ProcessDataWatcher::Result result = m_watcher.acknowledge(m_seen);
    if (result == ProcessDataWatcher::Result::NewSet) {
        m_report.sets.add(m_seen, Clock::now());
        read();
    }
    return result == ProcessDataWatcher::Result::NewSet
           || result == ProcessDataWatcher::Result::TimedOut;
}

/// As a reader does, but never a third time in a row, for which a reader waits until a set begins.
void StatWatch::read()
{
    ProcessDataManager &manager = m_region.manager();
    bool isRepeated = false;
    manager.lockReadBuffer();
    m_set.take(manager);
    ++m_report.reads;
    if (!manager.unlockReadBuffer(isRepeated) || isRepeated) {
        ++m_report.repeats;
        // Nothing is so short that somebody would come in between.
        manager.lockReadBuffer();
        manager.unlockReadBuffer(isRepeated);
    }
}

void StatWatch::lookAtLock()
{
    ++m_report.looks;
    m_report.waits += m_region.inspection().getLock().waiters > 0 ? 1 : 0;
}

void StatWatch::handle(SignalWait::Event event)
{
    if (event == SignalWait::Event::Stop && m_isDrawn) {
        m_picture.suspend();
    } else if (event == SignalWait::Event::Stop) {
        ::raise(SIGSTOP);
    } else if (event == SignalWait::Event::Resized && m_isDrawn) {
        m_picture.startAnew();
        draw();
    }
}

void StatWatch::doWhatIsDue()
{
    const Clock::time_point now = Clock::now();
    if (now >= m_nextLook) {
        lookAtLock();
        m_nextLook = now + lookInterval;
    }
    if (m_isDrawn && now >= m_nextPicture) {
        draw();
        m_nextPicture = now + drawInterval;
    }
}

void StatWatch::draw()
{
    const TerminalSize size = TerminalPicture::size();
    m_report.time = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_begin);
    constexpr ushort fullBlock = 0x2588;
    const QStringList drawn = linesOf(m_report, size.columns, QChar(fullBlock));
    QStringList lines;
    for (const auto &line : drawn) {
        lines.append(printable(line).left(size.columns));
    }
    // The cursor stands on a line of its own below.
    m_picture.show(lines.mid(0, std::max(size.rows - 1, 1)));
}

void StatWatch::print(bool isJson)
{
    constexpr int columns = 72;
    if (isJson) {
        writeOutput(jsonOf(m_report) + QLatin1Char('\n'));
    } else if (m_isDrawn) {
        draw();
    } else {
        const QStringList lines = linesOf(m_report, columns, QLatin1Char('#'));
        for (const auto &line : lines) {
            writeOutput(printable(line) + QLatin1Char('\n'));
        }
    }
}

ExitCode run(const CommandLine &line)
{
    const milliseconds time = timeOf(line);
    const bool isJson = line.isSet(QStringLiteral("json"));
    const DescriptionSource description(line.positional(0));
    description.requireMemory();
    if (!description.isDoubleBuffered()) {
        refuseUse(command, QStringLiteral("'%1' describes a single buffer, which counts no sets")
                               .arg(description.path()));
    }
    SignalWait signals(SignalWait::Signals::EndingAndTerminal);
    LiveRegion region(description, LiveRegion::Opening::Read);
    StatWatch watch(region, description.key(), !isJson && isOutputTerminal());
    watch.watch(signals, time);
    watch.print(isJson);
    // Also of one that is gone since the watcher, which looks once a second, looked for that.
    region.requireCurrent();
    return ExitCode::Done;
}

} // namespace

Command statCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("stat");
    syntax.summary = QStringLiteral("Measure how regularly sets are published.");
    syntax.positionals = {fileArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = 1;
    syntax.options = {{QStringLiteral("for"),
                       QStringLiteral("How long: 500ms, 10s, 5min, 1h (10s)."),
                       QStringLiteral("TIME")},
                      {QStringLiteral("json"), QStringLiteral("Print a JSON object.")}};
    syntax.examples = QStringLiteral(
        "  tessel stat host.process.json                     ten seconds; Ctrl-C ends it early\n"
        "  tessel stat --for 500ms --json host.process.json  for programs\n");
    return {syntax, run};
}
