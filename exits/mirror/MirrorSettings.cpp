#include "mirror/MirrorSettings.h"

#include "service/Refusal.h"

namespace {

using Type = SettingSyntax::Type;

constexpr qint64 mostRate = 1000;
constexpr qint64 mostMilliseconds = qint64{3600} * 1000;
/// Less than the machines need to hear of each other in time.
constexpr qint64 leastLease = 50;
constexpr qint64 mostLease = 60000;
/// Milliseconds; in less not even those of this machine hear of each other.
constexpr qint64 leastLook = 100;
constexpr qint64 mostLook = 60000;

SettingSyntax descriptionSyntax()
{
    return {QStringLiteral("description"),
            Type::List,
            QStringLiteral("FILE|DIR"),
            QStringLiteral("A description, unless some stand on the command line."),
            {}};
}

SettingSyntax commandsSyntax(const QString &help)
{
    return {QStringLiteral("commands"), Type::List, QStringLiteral("URL"), help, {}};
}

SettingSyntax statusFileSyntax()
{
    return {QStringLiteral("status-file"),
            Type::Text,
            QStringLiteral("FILE"),
            QStringLiteral("Keep a file with what 'status --json' shows, for tessel-metrics."),
            {}};
}

QVector<SettingSyntax> describeSyntax()
{
    SettingSyntax key{QStringLiteral("describe"),
                      Type::Text,
                      QStringLiteral("KEY"),
                      QStringLiteral("Fetch the description of a source, and end."),
                      {}};
    SettingSyntax folder{QStringLiteral("output"),
                         Type::Text,
                         QStringLiteral("DIR"),
                         QStringLiteral("Where --describe makes a folder with it."),
                         {}};
    key.isOptionOnly = true;
    folder.isOptionOnly = true;
    folder.letter = QLatin1Char('o');
    return {key, folder};
}

} // namespace

ProgramSyntax sendSyntax()
{
    ProgramSyntax syntax;
    syntax.program = QStringLiteral("tessel-mirror send");
    syntax.summary = QStringLiteral("Send the newest sets of regions to the machines that mirror "
                                    "them.");
    syntax.takesSeveral = true;
    syntax.settings = {descriptionSyntax(),
                       {QStringLiteral("rate"), Type::Number, QStringLiteral("N"),
                        QStringLiteral("Sets a second at most."), QStringLiteral("100"), 1,
                        mostRate},
                       {QStringLiteral("silent-after"), Type::Number, QStringLiteral("MS"),
                        QStringLiteral("Call a publisher silent after as many milliseconds without "
                                       "a set; 0: never."),
                        QStringLiteral("0"), 0, mostMilliseconds},
                       {QStringLiteral("lease"), Type::Number, QStringLiteral("MS"),
                        QStringLiteral("Count as gone after as many milliseconds without a sign."),
                        QStringLiteral("300"), leastLease, mostLease},
                       {QStringLiteral("read-only"),
                        Type::Flag,
                        {},
                        QStringLiteral("Map regions for reading alone; sets are found later then."),
                        QStringLiteral("no")},
                       commandsSyntax(QStringLiteral("Let mirrors have these leaves written; may "
                                                     "be repeated.")),
                       statusFileSyntax()};
    syntax.settings += DomainSettings::syntax();
    syntax.examples = QStringLiteral(
        "  tessel mirror send plant.process.json\n"
        "  tessel mirror send --interface eth1 --insecure --rate 50 plant.process.json\n"
        "  tessel mirror send --config /etc/tessel/mirror-send/plant.conf\n");
    return syntax;
}

ProgramSyntax receiveSyntax()
{
    ProgramSyntax syntax;
    syntax.program = QStringLiteral("tessel-mirror receive");
    syntax.summary = QStringLiteral("Keep regions of this machine like those of their sources.");
    syntax.takesSeveral = true;
    syntax.settings = {
        descriptionSyntax(),
        {QStringLiteral("as"),
         Type::Text,
         QStringLiteral("KEY"),
         QStringLiteral("Memory key of the mirror, where that of the source is taken."),
         {}},
        {QStringLiteral("without-state"),
         Type::List,
         QStringLiteral("URL"),
         QStringLiteral("Take leaves that cannot show the loss of the source; may be repeated."),
         {}},
        {QStringLiteral("watchdog"), Type::Number, QStringLiteral("MS"),
         QStringLiteral("Give a source up after as many milliseconds without a set; 0: never."),
         QStringLiteral("5000"), 0, mostMilliseconds},
        commandsSyntax(QStringLiteral("Ask the source for what is written into these leaves here; "
                                      "may be repeated.")),
        statusFileSyntax()};
    syntax.settings += describeSyntax();
    syntax.settings += DomainSettings::syntax();
    syntax.examples = QStringLiteral(
        "  tessel mirror receive plant.process.json\n"
        "  tessel mirror receive --as plantMirror plant.process.json\n"
        "  tessel mirror receive --describe plant -o plant\n"
        "  tessel mirror receive --config /etc/tessel/mirror-receive/plant.conf\n");
    return syntax;
}

ProgramSyntax statusSyntax()
{
    ProgramSyntax syntax;
    syntax.program = QStringLiteral("tessel-mirror status");
    syntax.summary = QStringLiteral("Show the sources and receivers of a domain.");
    syntax.takesNone = true;
    SettingSyntax json{QStringLiteral("json"),
                       Type::Flag,
                       {},
                       QStringLiteral("Print JSON."),
                       QStringLiteral("no")};
    json.isOptionOnly = true;
    SettingSyntax moment{QStringLiteral("for"),
                         Type::Number,
                         QStringLiteral("MS"),
                         QStringLiteral("Look as many milliseconds."),
                         QStringLiteral("2500"),
                         leastLook,
                         mostLook};
    moment.isOptionOnly = true;
    syntax.settings = QVector<SettingSyntax>{json, moment} + DomainSettings::syntax();
    syntax.examples = QStringLiteral("  tessel mirror status\n"
                                     "  tessel mirror status --json --interface eth1 --insecure\n");
    return syntax;
}

QStringList descriptionsOf(const Settings &settings)
{
    QStringList paths = settings.positionals();
    if (paths.isEmpty()) {
        paths = settings.settings().list(QStringLiteral("description"));
    }
    if (paths.isEmpty() && qEnvironmentVariableIsSet("TESSEL_DIR")) {
        paths.append(qEnvironmentVariable("TESSEL_DIR"));
    }
    paths.removeDuplicates();
    if (paths.isEmpty() || paths[0].isEmpty()) {
        throw Refusal{ExitCode::WrongUse,
                      QStringLiteral("no description; name a file or folder, set 'description' in "
                                     "the configuration, or TESSEL_DIR")};
    }
    return paths;
}

SetSource::Pace paceOf(const SettingGroup &settings)
{
    constexpr int second = 1000;
    const int rate = static_cast<int>(settings.number(QStringLiteral("rate")));
    return {(second + rate - 1) / rate,
            static_cast<int>(settings.number(QStringLiteral("silent-after"))),
            static_cast<int>(settings.number(QStringLiteral("lease")))};
}
