#include "commands/Commands.h"
#include "descriptions/UrlPattern.h"
#include "recordings/RecordedLeaves.h"
#include "recordings/RecordingReader.h"
#include "text/CsvText.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Suggestion.h"
#include "text/WrongUse.h"
#include "values/StateName.h"
#include "values/ValueText.h"

#include <QDateTime>

namespace {

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// The values at the URLs, all of them without one, in the order of the recording.
std::vector<int> columnsAt(const RecordingReader &reader, const QStringList &urls)
{
    const QVector<RecordedValue> &values = reader.head().values;
    std::vector<bool> isAsked(static_cast<std::size_t>(values.size()), urls.isEmpty());
    QStringList known;
    for (const auto &value : values) {
        known.append(value.url);
    }
    for (const auto &url : urls) {
        const UrlPattern pattern(url);
        bool isFound = false;
        for (int i = 0; i < values.size(); ++i) {
            if (pattern.leadsTo(values[i].url)) {
                isAsked[static_cast<std::size_t>(i)] = true;
                isFound = true;
            }
        }
        if (!isFound) {
            throw Failure{ExitCode::NotFound, QStringLiteral("%1: no value at '%2'%3")
                                                  .arg(reader.path(), url, suggestion(url, known))};
        }
    }
    std::vector<int> columns;
    for (int i = 0; i < values.size(); ++i) {
        if (isAsked[static_cast<std::size_t>(i)]) {
            columns.push_back(i);
        }
    }
    return columns;
}

QString timeText(const SetFacts &facts)
{
    constexpr qint64 million = 1000000;
    const qint64 micro = ((facts.time % million) + million) % million;
    const QDateTime second = QDateTime::fromMSecsSinceEpoch((facts.time - micro) / 1000, Qt::UTC);
    return second.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss"))
           + QStringLiteral(".%1Z").arg(micro, 6, 10, QLatin1Char('0'));
}

/// The texts of the values, made anew only where something changed.
class Cells
{
public:
    using Text = QString (*)(const ProcessValue &value);

    Cells(const RecordingReader &reader, const std::vector<int> &columns, Text text)
        : m_leaves(reader.head(), reader.layout())
        , m_places(reader.layout().places().size(), -1)
        , m_text(text)
    {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            m_places[static_cast<std::size_t>(columns[i])] = static_cast<int>(i);
        }
        values.resize(static_cast<int>(columns.size()));
        states.resize(values.size());
    }

    void take(const RecordedSet &set)
    {
        m_leaves.show(set.image);
        for (const int changed : set.changed) {
            const int place = m_places[static_cast<std::size_t>(changed)];
            if (place >= 0) {
                const ProcessValue value = m_leaves.value(changed);
                values[place] = m_text(value);
                states[place] = stateName(value.getErrorType());
            }
        }
    }

    QVector<QString> values;
    QVector<QString> states;

private:
    RecordedLeaves m_leaves;
    std::vector<int> m_places; ///< among the columns, or -1
    Text m_text;
};

/// The lines are those of sets, of which these have none.
void noteLateTriggers(const RecordingReader &reader, const RecordedSet &set, int run)
{
    for (const auto &trigger : set.lateTriggers) {
        writeErrorLine(QStringLiteral("tessel: note: %1: behind the last set of run %2 came the "
                                      "trigger '%3', at %4")
                           .arg(reader.path(), QString::number(run), trigger.on, trigger.time));
    }
}

void exportCsv(RecordingReader &reader, const std::vector<int> &columns, bool isTerse)
{
    LongOutput output;
    QStringList titles{QStringLiteral("time"),       QStringLiteral("elapsed"),
                       QStringLiteral("generation"), QStringLiteral("dropped"),
                       QStringLiteral("run"),        QStringLiteral("trigger")};
    for (const int column : columns) {
        const QString &url = reader.head().values[column].url;
        titles << url << url + QLatin1String(" state");
    }
    if (!isTerse) {
        output.add(csvLine(titles));
    }
    Cells cells(reader, columns, valueText);
    RecordedSet set;
    int run = 0;
    while (reader.next(set)) {
        noteLateTriggers(reader, set, run);
        cells.take(set);
        run += set.beginsRun ? 1 : 0;
        QStringList line;
        if (!isTerse) {
            line << timeText(set.facts) << QString::number(double(set.facts.elapsed) / 1e6, 'f', 6)
                 << QString::number(set.facts.generation) << QString::number(set.facts.dropped)
                 << QString::number(run) << set.triggers.join(QStringLiteral("; "));
        }
        for (int i = 0; i < cells.values.size(); ++i) {
            line << cells.values[i];
            if (!isTerse) {
                line << cells.states[i];
            }
        }
        output.add(csvLine(line));
    }
    noteLateTriggers(reader, set, run);
    output.finish();
}

QString jsonLine(const RecordingReader &reader, const std::vector<int> &columns,
                 const RecordedSet &set, int run, const Cells &cells)
{
    QVector<QPair<QString, QString>> values;
    QVector<QPair<QString, QString>> states;
    for (int i = 0; i < cells.values.size(); ++i) {
        const QString &url = reader.head().values[columns[static_cast<std::size_t>(i)]].url;
        values.append({url, cells.values[i]});
        if (cells.states[i] != stateName(PROCESS_VALUE_ERROR_TYPE_VALID)) {
            states.append({url, jsonString(cells.states[i])});
        }
    }
    QStringList triggers;
    for (const auto &trigger : set.triggers) {
        triggers.append(jsonString(trigger));
    }
    return jsonObject(
        {{QStringLiteral("time"), jsonString(timeText(set.facts))},
         {QStringLiteral("elapsed"), QString::number(double(set.facts.elapsed) / 1e6, 'f', 6)},
         {QStringLiteral("generation"), QString::number(set.facts.generation)},
         {QStringLiteral("dropped"), QString::number(set.facts.dropped)},
         {QStringLiteral("run"), QString::number(run)},
         {QStringLiteral("triggers"),
          QLatin1Char('[') + triggers.join(QStringLiteral(", ")) + QLatin1Char(']')},
         {QStringLiteral("values"), jsonObject(values)},
         {QStringLiteral("states"), jsonObject(states)}});
}

void exportJson(RecordingReader &reader, const std::vector<int> &columns)
{
    LongOutput output;
    Cells cells(reader, columns, valueJson);
    RecordedSet set;
    int run = 0;
    while (reader.next(set)) {
        noteLateTriggers(reader, set, run);
        cells.take(set);
        run += set.beginsRun ? 1 : 0;
        output.add(jsonLine(reader, columns, set, run, cells) + QLatin1Char('\n'));
    }
    noteLateTriggers(reader, set, run);
    output.finish();
}

void refuseTogether(const CommandLine &line, const char *one, const char *other)
{
    if (line.isSet(QLatin1String(one)) && line.isSet(QLatin1String(other))) {
        refuseUse("export", QStringLiteral("--%1 does not go with --%2")
                                .arg(QLatin1String(one), QLatin1String(other)));
    }
}

ExitCode run(const CommandLine &line)
{
    refuseTogether(line, "json", "csv");
    refuseTogether(line, "json", "terse");
    RecordingReader reader(line.positional(0));
    const std::vector<int> columns = columnsAt(reader, line.positionalsFrom(1));
    if (line.isSet(QStringLiteral("json"))) {
        exportJson(reader, columns);
    } else {
        exportCsv(reader, columns, line.isSet(QStringLiteral("terse")));
    }
    requireWhole(reader);
    return ExitCode::Done;
}

} // namespace

Command exportCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("export");
    syntax.summary = QStringLiteral("Print a recording as CSV or JSON.");
    syntax.positionals = {recordingArgument(),
                          {QStringLiteral("[URL...]"),
                           QStringLiteral("Values, or nodes for all below; * and ** stand for any "
                                          "names.")}};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = -1;
    syntax.options = {
        {QStringLiteral("csv"), QStringLiteral("A line a set, with titles (so anyway).")},
        {QStringLiteral("json"), QStringLiteral("A JSON object a set, each on a line.")},
        {{QStringLiteral("t"), QStringLiteral("terse")},
         QStringLiteral("The values alone, without titles, times and states.")}};
    syntax.examples = QStringLiteral(
        "  tessel export plant.rec --csv                all of it\n"
        "  tessel export -t plant.rec pump/speed        one value, a line a set\n"
        "  tessel export --json plant.rec 'pump/*'      for programs\n");
    return {syntax, run};
}
