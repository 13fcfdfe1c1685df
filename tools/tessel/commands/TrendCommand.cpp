#include "commands/Commands.h"
#include "commands/ResultFile.h"
#include "commands/TrendReport.h"
#include "expressions/Duration.h"
#include "live/RegionFollower.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/SignalWait.h"
#include "text/Terminal.h"

#include <algorithm>
#include <csignal>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds longestTime{24 * 3600 * 1000};
/// A set of each is kept, and of a longer time one in as many parts of it.
constexpr int mostPoints = 100000;
constexpr int mostValues = 20;
constexpr milliseconds singleBufferInterval{100};
constexpr milliseconds lookInterval{250};
constexpr milliseconds drawInterval{500};

[[noreturn]] void refuseUse(const QString &reason)
{
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("trend: %1; see 'tessel trend --help'").arg(reason)};
}

milliseconds timeOf(const CommandLine &line)
{
    const QString option = QStringLiteral("for");
    if (!line.isSet(option)) {
        return std::chrono::seconds(60);
    }
    const auto time = std::chrono::duration_cast<milliseconds>(
        durationFromOption(line.value(option)).value_or(milliseconds(0)));
    if (time <= milliseconds(0) || time > longestTime) {
        refuseUse(QStringLiteral("--for takes a time such as 500ms, 10s, 5min or 1h, up to 24h, "
                                 "not '%1'")
                      .arg(line.value(option)));
    }
    return time;
}

/// The numbers among the leaves; a text has no course.
QVector<Leaf> numbersAt(const DescriptionSource &description, const QStringList &urls)
{
    QVector<Leaf> numbers;
    const QVector<Leaf> leaves = description.leavesAt(urls);
    for (const auto &leaf : leaves) {
        if (slotOf(leaf).type == QLatin1String("string")) {
            writeErrorLine(QStringLiteral("tessel: note: '%1' of %2 is left out: a text has no "
                                          "trend")
                               .arg(leaf.url, description.path()));
        } else {
            numbers.append(leaf);
        }
    }
    if (numbers.isEmpty()) {
        throw Failure{ExitCode::Refused,
                      QStringLiteral("%1: no number among the values").arg(description.path())};
    }
    if (numbers.size() > mostValues) {
        refuseUse(QStringLiteral("%1 values are too many for one picture; name %2 at most")
                      .arg(numbers.size())
                      .arg(mostValues));
    }
    return numbers;
}

/// Follows values of a region until the time is over or somebody ends it.
class TrendWatch
{
public:
    TrendWatch(const DescriptionSource &description, const QVector<Leaf> &leaves, milliseconds time,
               bool isDrawn)
        : m_follower(description)
        , m_isDrawn(isDrawn)
        , m_end(m_begin + time)
        , m_interval(time / mostPoints)
    {
        if (!description.isDoubleBuffered()) {
            m_interval = std::max(m_interval, singleBufferInterval);
        }
        m_follower.region().requireUsable(leaves);
        m_report.key = description.key();
        for (const auto &leaf : leaves) {
            m_report.courses.append({leaf, ValueTrend(mostPoints)});
        }
    }

    void watch(SignalWait &signals);
    /// A Failure if the region has gone meanwhile.
    void requireCurrent() const
    {
        if (!m_follower.isThere()) {
            m_follower.region().requireCurrent();
        }
    }
    const TrendReport &report() const { return m_report; }
    void draw();

private:
    /// In the time of the trend.
    ValueTrend::Time now() const
    {
        return std::chrono::duration_cast<ValueTrend::Time>(Clock::now() - m_begin);
    }
    Clock::time_point nextMoment() const;
    void doWhatIsDue();
    void add();
    bool handle(SignalWait::Event event);

    TrendReport m_report;
    RegionFollower m_follower;
    TerminalPicture m_picture;
    bool m_isDrawn;
    Clock::time_point m_begin = Clock::now();
    Clock::time_point m_end;
    milliseconds m_interval;
    Clock::time_point m_nextSet = m_begin;
    Clock::time_point m_nextLook = m_begin;
    Clock::time_point m_nextPicture = m_begin;
};

void TrendWatch::watch(SignalWait &signals)
{
    bool isEnded = false;
    while (!isEnded && m_follower.isThere() && Clock::now() < m_end) {
        doWhatIsDue();
        const int sets = Clock::now() < m_nextSet ? -1 : m_follower.descriptor();
        isEnded = !handle(signals.waitUntilReadable(sets, nextMoment()));
    }
    // What was published before the end belongs to it, though it was not told of in time or came close behind another.
    if (m_follower.descriptor() >= 0 && m_follower.take()) {
        add();
    }
    // Nor was it looked at since, and a region that was replaced shows no more than what was there before.
    if (m_follower.isThere()) {
        m_follower.look();
    }
    m_report.time = now();
}

Clock::time_point TrendWatch::nextMoment() const
{
    Clock::time_point next = std::min(m_end, m_nextLook);
    if (Clock::now() < m_nextSet) {
        next = std::min(next, m_nextSet);
    }
    return m_isDrawn ? std::min(next, m_nextPicture) : next;
}

void TrendWatch::doWhatIsDue()
{
    if (Clock::now() >= m_nextSet) {
        if (m_follower.take()) {
            add();
            m_nextSet = Clock::now() + m_interval;
        } else if (m_follower.isOwed()) {
            // A writer was in between, or is inside: there is nothing to sleep on.
            m_nextSet = Clock::now() + std::max(m_interval, milliseconds(1));
        }
    }
    // A region that is gone ends the trend: a look would go on with the next one.
    if (m_follower.isThere() && Clock::now() >= m_nextLook) {
        m_follower.look();
        m_nextLook = Clock::now() + lookInterval;
    }
    if (m_isDrawn && Clock::now() >= m_nextPicture) {
        m_report.time = now();
        draw();
        m_nextPicture = Clock::now() + drawInterval;
    }
}

void TrendWatch::add()
{
    const ValueTrend::Time time = now();
    for (auto &course : m_report.courses) {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        m_follower.set().getValue(*course.leaf.element, value);
        course.trend.add(time, value);
    }
}

/// False if the program is to end.
bool TrendWatch::handle(SignalWait::Event event)
{
    if (event == SignalWait::Event::Stop && m_isDrawn) {
        m_picture.suspend();
    } else if (event == SignalWait::Event::Stop) {
        ::raise(SIGSTOP);
    } else if (event == SignalWait::Event::Resized && m_isDrawn) {
        m_picture.startAnew();
        draw();
    }
    return event != SignalWait::Event::End;
}

void TrendWatch::draw()
{
    const TerminalSize size = TerminalPicture::size();
    constexpr int mostBarLines = 8;
    // Below the first line, of each value a line of figures, and one where the cursor stands.
    const int barLines = (size.rows - 2) / m_report.courses.size() - 1;
    const Characters characters = charactersOfLocale();
    const QStringList drawn = linesOf(m_report, size.columns, std::clamp(barLines, 1, mostBarLines),
                                      characters);
    QStringList lines;
    for (const auto &line : drawn) {
        lines.append(leftInCells(cellText(line, characters), size.columns, characters));
    }
    m_picture.show(lines.mid(0, std::max(size.rows - 1, 1)));
}

/// What is printed, beside a picture in a file.
enum class Form { Drawing, Json, Values, Nothing };

Form formOf(const CommandLine &line, bool isPictureAlone)
{
    const QString terse = QStringLiteral("terse");
    const bool isJson = line.isSet(QStringLiteral("json"));
    if (isJson && line.isSet(terse)) {
        refuseUse(QStringLiteral("--json does not go with --terse"));
    }
    const Form form = isJson ? Form::Json : line.isSet(terse) ? Form::Values : Form::Drawing;
    if (isPictureAlone && form != Form::Drawing) {
        refuseUse(QStringLiteral("--%1 and --svg - would both go to standard output")
                      .arg(isJson ? QStringLiteral("json") : terse));
    }
    return isPictureAlone ? Form::Nothing : form;
}

void print(TrendWatch &watch, Form form, bool isDrawn)
{
    constexpr int columns = 72;
    constexpr int barLines = 4;
    if (form == Form::Nothing) {
        return;
    }
    if (form == Form::Json) {
        writeOutput(jsonOf(watch.report()) + QLatin1Char('\n'));
    } else if (form == Form::Values) {
        writeOutput(terseText(watch.report()));
    } else if (isDrawn) {
        watch.draw();
    } else {
        const QStringList lines = linesOf(watch.report(), columns, barLines, Characters::Ascii);
        for (const auto &line : lines) {
            writeOutput(printable(line) + QLatin1Char('\n'));
        }
    }
}

/// Beside JSON on standard output what is said of a dry run is a note.
void write(const ResultFile &file, const QByteArray &picture, bool isDryRun)
{
    if (isDryRun) {
        writeErrorLine(QStringLiteral("tessel: note: %1 bytes, not written to %2")
                           .arg(picture.size())
                           .arg(file.path()));
        return;
    }
    file.write(QString::fromUtf8(picture));
}

ExitCode run(const CommandLine &line)
{
    const milliseconds time = timeOf(line);
    const QString svg = QStringLiteral("svg");
    std::optional<ResultFile> picture;
    if (line.isSet(svg)) {
        picture.emplace(QStringLiteral("trend"), svg, line.value(svg));
    }
    const bool isPictureAlone = picture && picture->path() == QLatin1String("-");
    const bool isDryRun = line.isSet(QStringLiteral("dry-run"));
    if (isDryRun && !picture) {
        refuseUse(QStringLiteral("--dry-run goes with --svg"));
    }
    const Form form = formOf(line, isPictureAlone);
    const DescriptionSource description(line.positional(0));
    description.requireMemory();
    const QStringList urls = line.positionalsFrom(1);
    const QVector<Leaf> asked = numbersAt(description, urls);
    SignalWait signals(SignalWait::Signals::EndingAndTerminal);
    const bool isDrawn = form == Form::Drawing && isOutputTerminal();
    TrendWatch watch(description, asked, time, isDrawn);
    watch.watch(signals);
    print(watch, form, isDrawn);
    if (picture) {
        write(*picture, pictureOf(watch.report()), isDryRun);
    }
    watch.requireCurrent();
    return ExitCode::Done;
}

} // namespace

Command trendCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("trend");
    syntax.summary = QStringLiteral("Draw the course of values over some time.");
    syntax.positionals = {fileArgument(),
                          {QStringLiteral("URL..."),
                           QStringLiteral("Numbers, or nodes for all numbers below; * and ** stand "
                                          "for any names.")}};
    syntax.leastPositionals = 2;
    syntax.mostPositionals = -1;
    syntax.options = {
        {QStringLiteral("for"), QStringLiteral("How long: 500ms, 10s, 5min, 1h (60s)."),
         QStringLiteral("TIME")},
        {QStringLiteral("json"), QStringLiteral("Print a JSON object with every point.")},
        {{QStringLiteral("t"), QStringLiteral("terse")},
         QStringLiteral("Print the values alone, a line a set with tabs between.")},
        {QStringLiteral("svg"),
         QStringLiteral("Draw it into a file as well; - is standard output."),
         QStringLiteral("OUT")},
        {QStringLiteral("dry-run"), QStringLiteral("Draw for --svg, but write nothing.")}};
    syntax.examples = QStringLiteral(
        "  tessel trend host.process.json cpu/usage                    a minute; Ctrl-C ends it\n"
        "  tessel trend --for 10s host.process.json 'load/*'           several of them\n"
        "  tessel trend --for 1h --svg cpu.svg host.process.json cpu   a picture as well\n");
    return {syntax, run};
}
