#include "HeldRegion.h"
#include "ToolDescription.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"

#include <QtTest>

namespace {

/// What `tessel complete` prints for the words.
ToolResult complete(const QStringList &words)
{
    return runTool(QStringList{QStringLiteral("complete"), QStringLiteral("--")} + words);
}

/// The words that it offers, without what they are and without the names of files.
QStringList offered(const QString &output)
{
    QStringList words;
    for (const auto &line : output.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (!line.startsWith(QLatin1Char('\t'))) {
            words.append(line.section(QLatin1Char('\t'), 0, 0));
        }
    }
    return words;
}

QStringList wordsOf(const char *line)
{
    return QString::fromUtf8(line).split(QLatin1Char(' '));
}

} // namespace

/// What the tool tells a shell that completes its command line.
class tst_ToolComplete : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void subcommandsAreThoseOfTheHelp();
    void optionsAreThoseOfTheHelp_data();
    void optionsAreThoseOfTheHelp();
    void wordsFit_data();
    void wordsFit();
    void namesOfFilesFit_data();
    void namesOfFilesFit();
    void urlsAreCompletedPieceByPiece();
    void expressionsAreCompletedPieceByPiece();
    void descriptionsStandBehindTheWords();
    void whatCannotBeWrittenIsNotOfferedForIt();
    void booleansHaveTwoValues();
    void urlThatWouldBreakALineIsLeftOut();
    void fileThatCannotBeReadIsAnError();
    void keysOfRegionsFit();
};

void tst_ToolComplete::subcommandsAreThoseOfTheHelp()
{
    const QString help = runTool({QStringLiteral("--help")}).output;
    const QRegularExpression line(QStringLiteral("^  ([a-z]+)  +[A-Z]"),
                                  QRegularExpression::MultilineOption);
    QStringList named;
    auto matches = line.globalMatch(help);
    while (matches.hasNext()) {
        named.append(matches.next().captured(1));
    }

    const ToolResult result = complete({QString()});

    QVERIFY(named.size() > 5);
    QCOMPARE(offered(result.output), named);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolComplete::optionsAreThoseOfTheHelp_data()
{
    QTest::addColumn<QString>("subcommand");
    for (const char *subcommand :
         {"info",   "hold",     "sim",     "get",    "set",      "apply",   "watch",   "wait",
          "expect", "record",   "replay",  "export", "snapshot", "compare", "explain", "doctor",
          "stat",   "trend",    "regions", "rm",     "build",    "merge",   "config",  "layout",
          "diff",   "validate", "schema",  "gen",    "help"}) {
        QTest::newRow(subcommand) << QString::fromLatin1(subcommand);
    }
}

void tst_ToolComplete::optionsAreThoseOfTheHelp()
{
    QFETCH(QString, subcommand);
    const QString help = runTool({subcommand, QStringLiteral("--help")}).output;
    const QRegularExpression option(QStringLiteral("^  (?:-\\w, )?(--[a-z-]+)"),
                                    QRegularExpression::MultilineOption);
    QStringList named;
    auto matches = option.globalMatch(help);
    while (matches.hasNext()) {
        named.append(matches.next().captured(1));
    }

    const ToolResult result = complete({subcommand, QStringLiteral("--")});

    QVERIFY(named.contains(QStringLiteral("--help")));
    QCOMPARE(offered(result.output), named);
}

void tst_ToolComplete::wordsFit_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QStringList>("expected");
    const auto add = [](const char *words, const char *expected) {
        QStringList list = wordsOf(expected);
        list.removeAll(QString());
        QTest::newRow(words) << wordsOf(words) << list;
    };
    add("wa", "watch wait");
    add("--ver", "--verbose --version");
    add("-v in", "info");
    add("do", "doctor");
    add("stat --f", "--for");
    add("trend --", "--for --json --terse --svg --dry-run --verbose --help");
    add("watch --t", "--terse --tui");
    add("doctor --j", "--json");
    add("complete ", "");
    add("nothing ", "");
    add("set f u --error sensor-", "sensor-short-circuit sensor-breakage");
    add("set f u --error=over", "--error=overrange");
    add("set f u --error val", "");
    add("watch --count ", "");
    add("watch --count 5 --int", "--interval");
    add("watch -- --int", "");
    add("wait --ti", "--timeout");
    add("wait --timeout ", "");
    add("expect --f", "--for");
    add("expect --for ", "");
    add("record f --ri", "--ring");
    add("record f --on ", "");
    add("replay f --in", "--into");
    add("export f --c", "--csv");
    add("snapshot f -o ", "");
    add("compare --to", "--tolerance");
    add("regions ", "");
    add("regions --js", "--json");
    add("help mask-", "mask-beyond-byte mask-empty");
    add("help wa", "watch wait");
    add("schema ", "process config folder");
    add("sim f --profile ", "normal noisy faulty");
    add("sim f --profile=f", "--profile=faulty");
    add("sim f --se", "--seed --sets");
    add("gen ", "cpp");
    add("gen cpp " EXAMPLE_DEVICE " inputs/channel1/limits/",
        "inputs/channel1/limits/low inputs/channel1/limits/high");
    add("schema process ", "");
    add("config ", "get set show table");
    add("config set --no", "--no-input");
    add("config get --no", "");
    add("config table --c", "--csv");
    add("config show " EXAMPLE_DEVICE " di", "diagnosis/ digital/");
    add("config get " EXAMPLE_DEVICE " inputs/calibration/",
        "inputs/calibration/technician inputs/calibration/table#");
    add("config get " EXAMPLE_DEVICE " inputs/calibration/table#1",
        "inputs/calibration/table#1,0 inputs/calibration/table#1,1 inputs/calibration/table#1,2");
    add("config get " EXAMPLE_DEVICE " inputs/calibration/ta",
        "inputs/calibration/table#0,0 inputs/calibration/table#0,1 inputs/calibration/table#0,2 "
        "inputs/calibration/table#1,0 inputs/calibration/table#1,1 inputs/calibration/table#1,2 "
        "inputs/calibration/table#2,0 inputs/calibration/table#2,1 inputs/calibration/table#2,2 "
        "inputs/calibration/table#3,0 inputs/calibration/table#3,1 inputs/calibration/table#3,2");
    add("config table " EXAMPLE_DEVICE " inputs/calibration/", "inputs/calibration/table");
    add("config table " EXAMPLE_DEVICE " inputs/channel1/", "");
    add("config set " EXAMPLE_DEVICE " inputs/channel1/unit ", "°C °F K");
    add("config set " EXAMPLE_DEVICE " inputs/channel1/enabled ", "true false");
    add("config set " EXAMPLE_DEVICE " inputs/calibration/table#0,2 s", "suspect");
    add("config get " EXAMPLE_DEVICE " inputs/channel1/unit ", "");
    add("explain --config " EXAMPLE_DEVICE " di", "diagnosis/ digital/");
    add("explain --config " EXAMPLE_DEVICE " inputs/channel1/range/",
        "inputs/channel1/range/lower inputs/channel1/range/upper");
    add("explain --config " EXAMPLE_DEVICE " inputs/channel1/range/lower inputs/channel1/fi",
        "inputs/channel1/filter");
}

void tst_ToolComplete::wordsFit()
{
    QFETCH(QStringList, words);
    QFETCH(QStringList, expected);

    const ToolResult result = complete(words);

    QCOMPARE(offered(result.output), expected);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolComplete::namesOfFilesFit_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QString>("output");
    const auto add = [](const char *words, const char *output) {
        QTest::newRow(words) << wordsOf(words) << QString::fromLatin1(output);
    };
    add("get pl", "\t.process.json\n");
    add("hold --prefix acme ", "\t.process.json\n");
    add("build ", "\t/\n");
    add("apply a.process.json ", "\t.json\n");
    add("merge a.process.json ", "\t.process.json\n");
    add("merge a.process.json b.process.json ", "");
    add("config get ", "\t.config.json\n");
    add("explain --config ", "\t.config.json\n");
    add("gen cpp ", "\t.process.json\n");
    add("gen cpp f -o ", "\t.hpp\n");
    add("record f -o ", "\t.rec\n");
    add("replay ", "\t.rec\n");
    add("export pl", "\t.rec\n");
    add("replay f --into ", "\t.process.json\n");
    add("trend f u --svg ", "\t.svg\n");
    add("export f ", "");
    add("config table device url --import ", "\t.csv\n");
    add("config table device url --import=po", "\t.csv\n");
    add("info a.process.json ", "");
    add("explain ", "\t.process.json\n");
    add("diff a.process.json ", "\t.json\n");
    add("layout --svg ", "\t.svg\n");
    add("doctor a.process.json b", "\t.process.json\n");
    add("validate ", "\t.json\n");
    add("validate a.process.json ", "\t.json\n");
}

void tst_ToolComplete::namesOfFilesFit()
{
    QFETCH(QStringList, words);
    QFETCH(QString, output);

    QCOMPARE(complete(words).output, output);
}

void tst_ToolComplete::urlsAreCompletedPieceByPiece()
{
    ToolDescription description;
    for (const char *url : {"pump/speed", "plant/level", "pump/power"}) {
        description.add(QString::fromLatin1(url), QStringLiteral("double"),
                        ToolDescription::Metadata::ErrorState, 8);
    }
    const QString file = description.write();
    const auto urls = [&file](const char *typed) {
        return offered(complete({QStringLiteral("get"), file, QString::fromLatin1(typed)}).output);
    };

    QCOMPARE(urls(""), QStringList({QStringLiteral("plant/"), QStringLiteral("pump/")}));
    QCOMPARE(offered(complete({QStringLiteral("explain"), file, QString()}).output), urls(""));
    QCOMPARE(
        offered(
            complete({QStringLiteral("sim"), file, QStringLiteral("--only"), QString()}).output),
        urls(""));
    QCOMPARE(urls("pump/"),
             QStringList({QStringLiteral("pump/speed"), QStringLiteral("pump/power")}));
    // One node is no choice.
    QCOMPARE(urls("pl"), QStringList(QStringLiteral("plant/level")));
    QCOMPARE(urls("pump/x"), QStringList());
}

void tst_ToolComplete::expressionsAreCompletedPieceByPiece()
{
    ToolDescription description;
    for (const char *url : {"pump/speed", "plant/level"}) {
        description.add(QString::fromLatin1(url), QStringLiteral("double"),
                        ToolDescription::Metadata::ErrorState, 8);
    }
    const QString file = description.write();
    const auto pieces = [&file](const char *typed) {
        return offered(
            complete({QStringLiteral("expect"), file, QString::fromLatin1(typed)}).output);
    };

    QCOMPARE(pieces("pu"), QStringList(QStringLiteral("pump/speed")));
    QCOMPARE(pieces("pump/speed > 2 and pl"),
             QStringList(QStringLiteral("pump/speed > 2 and plant/level")));
    QCOMPARE(pieces("not al"), QStringList(QStringLiteral("not all(")));
    QCOMPARE(pieces("all(pu"), QStringList(QStringLiteral("all(pump/speed")));
    QCOMPARE(pieces("pump/speed sensor-b"),
             QStringList(QStringLiteral("pump/speed sensor-breakage")));
    QCOMPARE(pieces("va"), QStringList());
}

void tst_ToolComplete::descriptionsStandBehindTheWords()
{
    ToolDescription description;
    description.add(QStringLiteral("level"), QStringLiteral("double"),
                    ToolDescription::Metadata::None, 8,
                    {{QStringLiteral("unit"), QStringLiteral("m")}});
    description.add(QStringLiteral("open"), QStringLiteral("boolean"),
                    ToolDescription::Metadata::None, 1);

    QCOMPARE(complete({QStringLiteral("get"), description.write(), QString()}).output,
             QStringLiteral("level\tdouble, m\nopen\tboolean\n"));
}

void tst_ToolComplete::whatCannotBeWrittenIsNotOfferedForIt()
{
    ToolDescription description;
    description.add(QStringLiteral("measured"), QStringLiteral("double"),
                    ToolDescription::Metadata::None, 8, {{QStringLiteral("readOnly"), true}});
    description.add(QStringLiteral("wanted"), QStringLiteral("double"),
                    ToolDescription::Metadata::None, 8);
    const QString file = description.write();

    QCOMPARE(offered(complete({QStringLiteral("set"), file, QString()}).output),
             QStringList(QStringLiteral("wanted")));
    QCOMPARE(offered(complete({QStringLiteral("get"), file, QString()}).output),
             QStringList({QStringLiteral("measured"), QStringLiteral("wanted")}));
}

void tst_ToolComplete::booleansHaveTwoValues()
{
    ToolDescription description;
    description.addEveryForm();
    const QString file = description.write();
    const auto values = [&file](const char *url) {
        return offered(
            complete({QStringLiteral("set"), file, QString::fromLatin1(url), QString()}).output);
    };

    QCOMPARE(values("full/boolean"),
             QStringList({QStringLiteral("true"), QStringLiteral("false")}));
    QCOMPARE(values("full/double"), QStringList());
}

void tst_ToolComplete::urlThatWouldBreakALineIsLeftOut()
{
    ToolDescription description;
    for (const char *url : {"a\nb", "ab"}) {
        description.add(QString::fromLatin1(url), QStringLiteral("boolean"),
                        ToolDescription::Metadata::None, 1);
    }

    QCOMPARE(complete({QStringLiteral("get"), description.write(), QString()}).output,
             QStringLiteral("ab\tboolean\n"));
}

void tst_ToolComplete::fileThatCannotBeReadIsAnError()
{
    const ToolResult result = complete(
        {QStringLiteral("get"), QStringLiteral("/no/such.process.json"), QString()});

    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 3);
    QVERIFY(result.error.startsWith(QStringLiteral("tessel: /no/such.process.json: ")));
}

void tst_ToolComplete::keysOfRegionsFit()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int8"), ToolDescription::Metadata::None,
                    1);
    const LogCapture log;
    const HeldRegion region(description.write());

    const ToolResult result = complete({QStringLiteral("rm"), description.key()});

    QCOMPARE(offered(result.output), QStringList{description.key()});
}

QTEST_GUILESS_MAIN(tst_ToolComplete)
#include "tst_ToolComplete.moc"
