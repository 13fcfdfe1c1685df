#include "commands/Commands.h"
#include "commands/ConfigActions.h"
#include "text/Failure.h"
#include "text/Suggestion.h"

namespace {

using ConfigOption::isSet;

/// One of the actions, with the number of its arguments behind DIR|FILE, and its own options.
struct Action
{
    const char *name;
    int least;
    int most;
    QStringList options;
    ExitCode (*run)(const CommandLine &line, const ConfigurationSource &source);
};

QVector<Action> allActions()
{
    return {{"get", 1, 1, {}, getConfiguration},
            {"set",
             1,
             2,
             {QLatin1String(ConfigOption::noInput), QLatin1String(ConfigOption::dryRun)},
             setConfiguration},
            {"show", 0, 1, {}, showConfiguration},
            {"table",
             1,
             1,
             {QLatin1String(ConfigOption::csv), QLatin1String(ConfigOption::import),
              QLatin1String(ConfigOption::dryRun)},
             tableOfConfiguration}};
}

CommandSyntax syntax();

Action actionNamed(const QString &name)
{
    const QVector<Action> actions = allActions();
    for (const auto &action : actions) {
        if (name == QLatin1String(action.name)) {
            return action;
        }
    }
    refuseConfigUse(
        QStringLiteral("unknown action '%1'%2").arg(name, suggestion(name, actionNames(syntax()))));
}

void checkOptions(const CommandLine &line, const Action &action)
{
    const CommandSyntax ownSyntax = syntax();
    for (const char *option :
         {ConfigOption::noInput, ConfigOption::csv, ConfigOption::import, ConfigOption::dryRun}) {
        if (isSet(line, option)
            && !mayTakeOption(ownSyntax, QLatin1String(action.name), QLatin1String(option))) {
            refuseConfigUse(QStringLiteral("%1 does not take --%2")
                                .arg(QLatin1String(action.name), QLatin1String(option)));
        }
    }
}

void checkUse(const CommandLine &line, const Action &action)
{
    const int count = line.positionalsFrom(2).size();
    if (count < action.least) {
        refuseConfigUse(QStringLiteral("URL is missing"));
    }
    if (count > action.most) {
        refuseConfigUse(
            QStringLiteral("'%1' is one argument too many").arg(line.positional(2 + action.most)));
    }
    checkOptions(line, action);
}

/// What does not go together, whatever is on the disk.
void checkCombination(const CommandLine &line, const Action &action)
{
    const bool hasValue = line.positionalsFrom(3).size() == 1;
    if (action.run == setConfiguration && hasValue == isSet(line, ConfigOption::noInput)) {
        refuseConfigUse(QStringLiteral("set takes either VALUE or --no-input"));
    }
    if (isSet(line, ConfigOption::csv)
        && (isSet(line, ConfigOption::json) || isSet(line, ConfigOption::import))) {
        refuseConfigUse(QStringLiteral("--csv goes neither with --json nor with --import"));
    }
    if (action.run == tableOfConfiguration && isSet(line, ConfigOption::dryRun)
        && !isSet(line, ConfigOption::import)) {
        refuseConfigUse(QStringLiteral("table takes --dry-run with --import"));
    }
}

ExitCode run(const CommandLine &line)
{
    const Action action = actionNamed(line.positional(0));
    checkUse(line, action);
    checkCombination(line, action);
    const ConfigurationSource source(line.positional(1));
    return action.run(line, source);
}

QVector<CommandSyntax::Positional> positionals()
{
    return {{QStringLiteral("ACTION"), QStringLiteral("get, set, show or table.")},
            {QStringLiteral("DIR|FILE"),
             QStringLiteral("An instance directory, or a configuration file, NAME.config.json."),
             true},
            {QStringLiteral("[URL]"),
             QStringLiteral("A leaf or a cell, URL#ROW,COLUMN; for show a node as well. To be "
                            "read, * and ** stand for any names.")},
            {QStringLiteral("[VALUE]"),
             QStringLiteral("What to set, fitting the type; -- before a text with a '-'.")}};
}

QList<QCommandLineOption> options()
{
    return {{QLatin1String(ConfigOption::json), QStringLiteral("Print JSON.")},
            {QLatin1String(ConfigOption::noInput),
             QStringLiteral("set: nothing entered, instead of VALUE.")},
            {QLatin1String(ConfigOption::csv), QStringLiteral("table: print CSV.")},
            {QLatin1String(ConfigOption::import),
             QStringLiteral("table: replace the rows by those of a CSV file."),
             QStringLiteral("FILE")},
            {QLatin1String(ConfigOption::dryRun),
             QStringLiteral("set, table --import: look everything over, but write nothing.")}};
}

QString examples()
{
    return QStringLiteral(
        "  tessel config show device                                all values of a device\n"
        "  tessel config get device inputs/channel1/filter          one value\n"
        "  tessel config get device 'inputs/*/filter'               several of them\n"
        "  tessel config set device inputs/channel1/filter 0.75     change and stamp its file\n"
        "  tessel config set device inputs/calibration/table#3,1 98.5    one cell\n"
        "  tessel config table device inputs/calibration/table --csv     for programs\n"
        "  tessel config table device inputs/calibration/table --import points.csv\n");
}

CommandSyntax syntax()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("config");
    syntax.summary = QStringLiteral("Show and change a configuration; changes are stamped.");
    syntax.positionals = positionals();
    syntax.leastPositionals = 2;
    syntax.mostPositionals = 4;
    syntax.options = options();
    syntax.examples = examples();
    const QVector<Action> actions = allActions();
    for (const auto &action : actions) {
        syntax.actions.append({QLatin1String(action.name), action.options});
    }
    return syntax;
}

} // namespace

void refuseConfigUse(const QString &reason)
{
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("config: %1; see 'tessel config --help'").arg(reason)};
}

Command configCommand()
{
    return {syntax(), run};
}
