#include "commands/BuiltFolder.h"
#include "commands/Commands.h"
#include "commands/SimPlan.h"
#include "commands/SimulationRun.h"
#include "expressions/Duration.h"
#include "live/UnseenUsers.h"
#include "text/CountText.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Suggestion.h"
#include "text/WrongUse.h"
#include "values/StateName.h"

#include <QRandomGenerator>

#include <limits>

namespace {

using std::chrono::microseconds;

constexpr auto command = "sim";

namespace Option {

constexpr auto profile = "profile";
constexpr auto rate = "rate";
constexpr auto seed = "seed";
constexpr auto time = "for";
constexpr auto sets = "sets";
constexpr auto only = "only";
constexpr auto attach = "attach";
constexpr auto dryRun = "dry-run";
constexpr auto json = "json";

} // namespace Option

struct NamedProfile
{
    QString name;
    SimulationProfile profile;
};

struct Settings
{
    NamedProfile profile;
    double rate;
    quint64 seed;
    SimulationRun::Bounds bounds;
    QStringList urls;
    bool isAttached;
    bool isJson;
};

bool isSet(const CommandLine &line, const char *option)
{
    return line.isSet(QLatin1String(option));
}

NamedProfile profileOf(const CommandLine &line)
{
    const QVector<NamedProfile> profiles{{QStringLiteral("normal"), SimulationProfile::Normal},
                                         {QStringLiteral("noisy"), SimulationProfile::Noisy},
                                         {QStringLiteral("faulty"), SimulationProfile::Faulty}};
    if (!isSet(line, Option::profile)) {
        return profiles.constFirst();
    }
    const QString asked = line.value(QLatin1String(Option::profile));
    QStringList names;
    for (const auto &profile : profiles) {
        if (profile.name == asked) {
            return profile;
        }
        names.append(profile.name);
    }
    refuseUse(command, QStringLiteral("--profile takes normal, noisy or faulty, not '%1'%2")
                           .arg(asked, suggestion(asked, names)));
}

double rateOf(const CommandLine &line)
{
    constexpr double usual = 10;
    constexpr double least = 0.01;
    constexpr double most = 1000;
    if (!isSet(line, Option::rate)) {
        return usual;
    }
    bool isNumber = false;
    const double rate = line.value(QLatin1String(Option::rate)).toDouble(&isNumber);
    if (!isNumber || !(rate >= least && rate <= most)) {
        refuseUse(command,
                  QStringLiteral("--rate takes a number of sets per second from %1 to %2, not '%3'")
                      .arg(least)
                      .arg(most)
                      .arg(line.value(QLatin1String(Option::rate))));
    }
    return rate;
}

quint64 seedOf(const CommandLine &line)
{
    if (!isSet(line, Option::seed)) {
        // Few digits, as it may have to be typed.
        return QRandomGenerator::system()->generate();
    }
    bool isNumber = false;
    const QString text = line.value(QLatin1String(Option::seed));
    const quint64 seed = text.toULongLong(&isNumber);
    if (!isNumber || text.startsWith(QLatin1Char('-'))) {
        refuseUse(command, QStringLiteral("--seed takes a whole number from 0 to %1, not '%2'")
                               .arg(std::numeric_limits<quint64>::max())
                               .arg(text));
    }
    return seed;
}

SimulationRun::Bounds boundsOf(const CommandLine &line)
{
    SimulationRun::Bounds bounds;
    if (isSet(line, Option::sets)) {
        bounds.sets = line.number(QLatin1String(Option::sets), 1, std::numeric_limits<int>::max(),
                                  1);
    }
    if (isSet(line, Option::time)) {
        const QString text = line.value(QLatin1String(Option::time));
        bounds.time = durationFromOption(text);
        if (!bounds.time || *bounds.time == microseconds(0)) {
            refuseUse(command,
                      QStringLiteral("--for takes a time such as 500ms, 10s, 5min or 1h, up to 30 "
                                     "days, not '%1'")
                          .arg(text));
        }
    }
    return bounds;
}

Settings settingsOf(const CommandLine &line)
{
    return {profileOf(line),
            rateOf(line),
            seedOf(line),
            boundsOf(line),
            line.positionalsFrom(1) + line.values(QLatin1String(Option::only)),
            isSet(line, Option::attach),
            isSet(line, Option::json)};
}

/// Those that hold a value, of which only the creator writes what is read-only.
QVector<Leaf> writable(const DescriptionSource &description, const Settings &settings)
{
    // Even an empty text has its closing unit.
    const QVector<Leaf> leaves = withTextsFrom(sizeof(ushort), description.leavesAt(settings.urls),
                                               settings.urls, description);
    QVector<Leaf> selected;
    for (const auto &leaf : leaves) {
        if (!settings.isAttached || !slotOf(leaf).isReadOnly) {
            selected.append(leaf);
        } else if (!settings.urls.isEmpty()) {
            throw Failure{ExitCode::Refused,
                          QStringLiteral("'%1' is read-only; only the creator of the region may "
                                         "write it, which --attach is not")
                              .arg(leaf.url)};
        }
    }
    return selected;
}

QVector<SimulatedLeaf> simulated(const QVector<Leaf> &leaves, const Settings &settings)
{
    QVector<SimulatedLeaf> simulated;
    for (const auto &leaf : leaves) {
        simulated.append(SimulatedLeaf(leaf, settings.profile.profile, settings.seed));
    }
    return simulated;
}

/// Somebody who publishes or reads would lose his region.
void refuseIfAlive(const DescriptionSource &description)
{
    const RegionInspection region(description.key());
    if (!region.exists()) {
        return;
    }
    const auto refuse = [&description](const QString &who) {
        throw Failure{ExitCode::Refused,
                      QStringLiteral("%1: region '%2' is in use by %3; end it first, or give "
                                     "--attach to write into it")
                          .arg(description.path(), description.key(), who)};
    };
    const RegionCreator creator = region.getCreator();
    if (creator.isAlive == true) {
        refuse(QStringLiteral("its creator, process %1").arg(*creator.pid));
    }
    // In another container, or of an older library.
    if (!creator.isAlive && region.isDoubleBuffer() == true) {
        refuse(QStringLiteral("a creator that cannot be seen"));
    }
    const QVector<RegionUser> users = region.getUsers();
    for (const RegionUser &user : users) {
        if (!user.isReplaced) {
            refuse(QStringLiteral("process %1").arg(user.pid));
        }
    }
    if (hasUnseenUsers(description.key())) {
        refuse(QStringLiteral("a process that cannot be seen"));
    }
    writeErrorLine(QStringLiteral("tessel: note: replaced the region '%1' that was there; who was "
                                  "attached to it must attach again")
                       .arg(description.key()));
}

QString beginText(const DescriptionSource &description, const Settings &settings, int leaves)
{
    const QString rate = settings.rate == 1 ? QStringLiteral("1 set")
                                            : QStringLiteral("%1 sets").arg(settings.rate);
    return QStringLiteral("simulating %1: %2, %3 a second, %4, seed %5; SIGINT or SIGTERM ends "
                          "it\n")
        .arg(printable(description.key()),
             countText(static_cast<quint64>(leaves), QStringLiteral("leaf"),
                       QStringLiteral("leaves")),
             rate, settings.profile.name, QString::number(settings.seed));
}

QString endText(const SimulationReport &report)
{
    return QStringLiteral("published %1 in %2 s, %3 of them late: %4, %5 erroneous\n")
        .arg(countText(report.sets, QStringLiteral("set")))
        .arg(static_cast<double>(report.time.count()) / 1000, 0, 'f', 1)
        .arg(report.late)
        .arg(countText(report.values(), QStringLiteral("value")))
        .arg(report.erroneous());
}

QString endJson(const SimulationReport &report, const DescriptionSource &description,
                const Settings &settings, int leaves)
{
    QVector<QPair<QString, QString>> states;
    for (std::size_t state = 0; state < report.states.size(); ++state) {
        states.append({stateName(static_cast<ProcessDataDefinitions::ErrorTypes>(state)),
                       QString::number(report.states.at(state))});
    }
    return jsonObject({
               {QStringLiteral("key"), jsonString(description.key())},
               {QStringLiteral("profile"), jsonString(settings.profile.name)},
               {QStringLiteral("rate"), QString::number(settings.rate)},
               {QStringLiteral("seed"), QString::number(settings.seed)},
               {QStringLiteral("values"), QString::number(leaves)},
               {QStringLiteral("seconds"),
                QString::number(std::chrono::duration<double>(report.time).count(), 'f', 3)},
               {QStringLiteral("sets"), QString::number(report.sets)},
               {QStringLiteral("late"), QString::number(report.late)},
               {QStringLiteral("written"), QString::number(report.values())},
               {QStringLiteral("erroneous"), QString::number(report.erroneous())},
               {QStringLiteral("states"), jsonObject(states)},
           })
           + QLatin1Char('\n');
}

void requireOwnRegion(RegionInspection::Name name, const DescriptionSource &description)
{
    switch (name) {
    case RegionInspection::Name::Current: return;
    case RegionInspection::Name::Replaced:
        throw Failure{ExitCode::LayoutMismatch,
                      QStringLiteral("%1: the region '%2' was replaced by that of another creator")
                          .arg(description.path(), description.key())};
    case RegionInspection::Name::Removed: break;
    }
    throw Failure{ExitCode::NotFound, QStringLiteral("%1: the region '%2' was removed by somebody")
                                          .arg(description.path(), description.key())};
}

ExitCode simulate(const DescriptionSource &description, const Settings &settings)
{
    const QVector<Leaf> selected = writable(description, settings);
    SignalWait signals(SignalWait::Signals::Ending);
    if (!settings.isAttached) {
        refuseIfAlive(description);
    }
    LiveRegion region(description, settings.isAttached ? LiveRegion::Opening::Attach
                                                       : LiveRegion::Opening::Create);
    const QVector<Leaf> leaves = region.readable(selected, settings.urls);
    SimulationRun simulation(region, description.key(), simulated(leaves, settings), settings.rate);
    if (!settings.isJson) {
        writeOutput(beginText(description, settings, leaves.size()));
    }
    const bool isThere = simulation.run(signals, settings.bounds);
    const SimulationReport &report = simulation.report();
    writeOutput(settings.isJson ? endJson(report, description, settings, leaves.size())
                                : endText(report));
    if (!isThere && settings.isAttached) {
        region.requireCurrent();
    }
    if (!isThere) {
        requireOwnRegion(simulation.regionName(), description);
    }
    return ExitCode::Done;
}

/// A file has its key, and a folder is laid out anew neither for --attach nor for a trial.
void refusePrefix(const CommandLine &line)
{
    for (const char *option : {Option::attach, Option::dryRun}) {
        if (line.isSet(QStringLiteral("prefix")) && isSet(line, option)) {
            refuseUse(command,
                      QStringLiteral("--prefix does not go with --%1").arg(QLatin1String(option)));
        }
    }
}

ExitCode run(const CommandLine &line)
{
    const Settings settings = settingsOf(line);
    refusePrefix(line);
    if (isSet(line, Option::dryRun)) {
        const DescriptionSource description(line.positional(0), DescriptionSource::Layout::ByBuild);
        const auto leaves = simulated(writable(description, settings), settings);
        writeOutput(settings.isJson ? planJson(leaves) : planText(leaves));
        return ExitCode::Done;
    }
    if (!settings.isAttached) {
        buildIfFolder(line, QStringLiteral("sim"));
    }
    const DescriptionSource description(line.positional(0));
    description.requireMemory();
    return simulate(description, settings);
}

QList<QCommandLineOption> options()
{
    return {{QLatin1String(Option::profile),
             QStringLiteral("normal, noisy or faulty, with error states (normal)."),
             QStringLiteral("PROFILE")},
            {QLatin1String(Option::rate), QStringLiteral("Sets a second, 0.01 to 1000 (10)."),
             QStringLiteral("HZ")},
            {QLatin1String(Option::seed),
             QStringLiteral("Makes the same values again (one that is told)."),
             QStringLiteral("N")},
            {QLatin1String(Option::time),
             QStringLiteral("How long: 500ms, 10s, 5min, 1h (until a signal)."),
             QStringLiteral("TIME")},
            {QLatin1String(Option::sets), QStringLiteral("How many sets (until a signal)."),
             QStringLiteral("N")},
            {QLatin1String(Option::only),
             QStringLiteral("The same as URL; may be given several times."), QStringLiteral("URL")},
            {QLatin1String(Option::attach),
             QStringLiteral("Write into the region of another process, and leave it there.")},
            prefixOption(),
            {QLatin1String(Option::dryRun),
             QStringLiteral("Print range and waveform of each value; touch no region.")},
            {QLatin1String(Option::json),
             QStringLiteral("Print a JSON object at the end; with --dry-run an array.")}};
}

} // namespace

Command simCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("sim");
    syntax.summary = QStringLiteral("Create the region and publish made-up values into it.");
    syntax.positionals = {fileArgument(), urlsArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = -1;
    syntax.options = options();
    syntax.examples = QStringLiteral(
        "  tessel sim plant.process.json                             until Ctrl-C\n"
        "  tessel sim plant.process.json --profile faulty --rate 2   with error states\n"
        "  tessel sim plant.process.json --sets 60 --seed 7          the same 60 sets each time\n"
        "  tessel sim --dry-run device                               what it would publish\n");
    return {syntax, run};
}
