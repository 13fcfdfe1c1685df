#include "ToolDescription.h"
#include "ToolProcess.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <unistd.h>

namespace {

/// A configuration with an error and a warning, and one that is well.
class Descriptions
{
public:
    Descriptions()
    {
        m_folder.write(QStringLiteral("bad.config.json"),
                       "{\"type\": \"treenode\", \"value\": {\n"
                       "  \"speed\": {\"type\": \"int32\", \"value\": \"fast\", \"hint\": 1}}}\n");
        m_folder.write(QStringLiteral("odd.config.json"),
                       "{\"type\": \"treenode\", \"value\": {}, \"hint\\u001b\": 1}\n");
        m_folder.write(QStringLiteral("good.config.json"), R"({"type": "treenode", "value": {}})");
    }

    QString path(const char *name) const
    {
        return m_folder.path(QLatin1String(name) + QStringLiteral(".config.json"));
    }
    QString bad() const { return path("bad"); }
    QString odd() const { return path("odd"); }
    QString good() const { return path("good"); }

private:
    ToolDescription m_folder;
};

ToolResult validate(const QStringList &arguments)
{
    return runTool(QStringList(QStringLiteral("validate")) + arguments);
}

QString linesOfBad(const QString &path)
{
    return QStringLiteral(
               "%1:2:39: error value-of-type speed: 'value' is 'fast', which is no int32\n"
               "%1:2:47: warning unknown-key speed: unknown key 'hint'\n")
        .arg(path);
}

QJsonObject objectOf(const QString &text)
{
    return QJsonDocument::fromJson(text.toUtf8()).object();
}

} // namespace

/// `tessel validate` and `tessel help`.
class tst_ToolValidate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void problemsAreLines();
    void warningsAloneAreNoFailure();
    void nothingIsSaidWhereAllIsWell();
    void jsonHasAnObjectAProblem();
    void jsonOfNoProblemIsAnEmptyArray();
    void sarifHasRulesAndResults();
    void severalPathsAreOneRun();
    void defaultDescriptionStandsForAPathThatIsLeftOut();
    void missingPathIsNotFound();
    void pathWithoutPermissionIsNoAccess();
    void wrongUse_data();
    void wrongUse();
    void closedPipeLeavesTheAnswer();
    void fullOutputIsAFailure();
    void helpExplainsARule();
    void everyRuleIsExplained();
    void helpOfASubcommandIsItsOwn();
    void helpWithoutATopicIsTheGeneralOne();
    void unknownTopicHasAHint();
};

void tst_ToolValidate::problemsAreLines()
{
    const Descriptions descriptions;

    const ToolResult result = validate({descriptions.bad()});

    QCOMPARE(result.output, linesOfBad(descriptions.bad()));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolValidate::warningsAloneAreNoFailure()
{
    const Descriptions descriptions;

    const ToolResult result = validate({descriptions.odd()});

    QCOMPARE(result.output,
             QStringLiteral("%1:1:35: warning unknown-key: unknown key 'hint\\u001b'\n")
                 .arg(descriptions.odd()));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolValidate::nothingIsSaidWhereAllIsWell()
{
    const Descriptions descriptions;

    const ToolResult result = validate({descriptions.good()});

    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolValidate::jsonHasAnObjectAProblem()
{
    const Descriptions descriptions;

    const ToolResult result = validate({QStringLiteral("--json"), descriptions.bad()});

    const QJsonArray problems = QJsonDocument::fromJson(result.output.toUtf8()).array();
    QCOMPARE(problems.size(), 2);
    QCOMPARE(problems.at(0).toObject(),
             (QJsonObject{
                 {QStringLiteral("file"), descriptions.bad()},
                 {QStringLiteral("line"), 2},
                 {QStringLiteral("column"), 39},
                 {QStringLiteral("level"), QStringLiteral("error")},
                 {QStringLiteral("rule"), QStringLiteral("value-of-type")},
                 {QStringLiteral("url"), QStringLiteral("speed")},
                 {QStringLiteral("text"), QStringLiteral("'value' is 'fast', which is no int32")},
             }));
    QCOMPARE(problems.at(1).toObject().value(QStringLiteral("level")),
             QJsonValue(QStringLiteral("warning")));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolValidate::jsonOfNoProblemIsAnEmptyArray()
{
    const Descriptions descriptions;

    const ToolResult result = validate({QStringLiteral("--json"), descriptions.good()});

    QCOMPARE(result.output, QStringLiteral("[]\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolValidate::sarifHasRulesAndResults()
{
    const Descriptions descriptions;

    const ToolResult result = validate({QStringLiteral("--sarif"), descriptions.bad()});

    QCOMPARE(result.exitCode, 1);
    const QJsonObject log = objectOf(result.output);
    QCOMPARE(log.value(QStringLiteral("version")), QJsonValue(QStringLiteral("2.1.0")));
    const QJsonObject run = log.value(QStringLiteral("runs")).toArray().at(0).toObject();
    QCOMPARE(run.value(QStringLiteral("columnKind")),
             QJsonValue(QStringLiteral("unicodeCodePoints")));
    const QJsonObject driver =
        run.value(QStringLiteral("tool")).toObject().value(QStringLiteral("driver")).toObject();
    QCOMPARE(driver.value(QStringLiteral("name")), QJsonValue(QStringLiteral("tessel")));
    QVERIFY(driver.value(QStringLiteral("rules")).toArray().size() > 60);
    const QJsonObject problem = run.value(QStringLiteral("results")).toArray().at(0).toObject();
    QCOMPARE(problem.value(QStringLiteral("ruleId")), QJsonValue(QStringLiteral("value-of-type")));
    QCOMPARE(problem.value(QStringLiteral("level")), QJsonValue(QStringLiteral("error")));
    const QJsonObject place = problem.value(QStringLiteral("locations"))
                                  .toArray()
                                  .at(0)
                                  .toObject()
                                  .value(QStringLiteral("physicalLocation"))
                                  .toObject();
    QCOMPARE(place.value(QStringLiteral("artifactLocation")),
             QJsonValue(QJsonObject{
                 {QStringLiteral("uri"), QStringLiteral("file://") + descriptions.bad()}}));
    QCOMPARE(place.value(QStringLiteral("region")),
             QJsonValue(QJsonObject{{QStringLiteral("startLine"), 2},
                                    {QStringLiteral("startColumn"), 39}}));
}

void tst_ToolValidate::severalPathsAreOneRun()
{
    const Descriptions descriptions;

    const ToolResult result = validate(
        {descriptions.odd(), descriptions.good(), descriptions.bad()});

    QVERIFY(result.output.startsWith(linesOfBad(descriptions.bad())));
    QCOMPARE(result.output.count(QLatin1Char('\n')), 3);
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolValidate::defaultDescriptionStandsForAPathThatIsLeftOut()
{
    const Descriptions descriptions;

    const ToolResult result = runTool({QStringLiteral("validate")},
                                      {QStringLiteral("TESSEL_DIR=") + descriptions.bad()});

    QCOMPARE(result.output, linesOfBad(descriptions.bad()));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolValidate::missingPathIsNotFound()
{
    const Descriptions descriptions;
    const QString missing = descriptions.path("missing");

    const ToolResult result = validate({descriptions.bad(), missing});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: no such file\n").arg(missing));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolValidate::pathWithoutPermissionIsNoAccess()
{
    if (::geteuid() == 0) {
        QSKIP("Root reads every file");
    }
    const Descriptions descriptions;
    QVERIFY(QFile::setPermissions(descriptions.good(), QFile::WriteOwner));

    const ToolResult result = validate({descriptions.good()});

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: no permission to read it\n").arg(descriptions.good()));
    QCOMPARE(result.exitCode, 4);
}

void tst_ToolValidate::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no path") << QStringList() << QStringLiteral("FILE|DIR... is missing");
    QTest::newRow("unknown option")
        << QStringList{QStringLiteral("--jsno"), QStringLiteral("a")}
        << QStringLiteral("unknown option '--jsno' (did you mean '--json'?)");
    QTest::newRow("two forms") << QStringList{QStringLiteral("--json"), QStringLiteral("--sarif"),
                                              QStringLiteral("a")}
                               << QStringLiteral("give --json or --sarif, not both");
}

void tst_ToolValidate::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const ToolResult result = validate(arguments);

    QCOMPARE(result.error,
             QStringLiteral("tessel: validate: %1; see 'tessel validate --help'\n").arg(reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolValidate::closedPipeLeavesTheAnswer()
{
    const Descriptions descriptions;

    for (const QStringList &options : {QStringList(), QStringList(QStringLiteral("--json")),
                                       QStringList(QStringLiteral("--sarif"))}) {
        QCOMPARE(exitCodeWithoutReader(QStringList(QStringLiteral("validate")) + options
                                       + QStringList(descriptions.bad())),
                 1);
    }
}

void tst_ToolValidate::fullOutputIsAFailure()
{
    const Descriptions descriptions;
    QProcess shell;

    shell.start(QStringLiteral("sh"),
                {QStringLiteral("-c"), QStringLiteral("exec \"$@\" >/dev/full"),
                 QStringLiteral("sh"), QStringLiteral(TESSEL_TOOL), QStringLiteral("validate"),
                 descriptions.bad()});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(shell.exitCode(), 9);
    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
}

void tst_ToolValidate::helpExplainsARule()
{
    const ToolResult result = runTool({QStringLiteral("help"), QStringLiteral("not-an-object")});

    QCOMPARE(result.output,
             QStringLiteral(
                 "not-an-object (error of 'tessel validate')\n\n"
                 "Cause: The top level of the document is a list. It is read as an element without "
                 "any key.\n"
                 "Cure:  Put the element there: an object with a type.\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolValidate::everyRuleIsExplained()
{
    const Descriptions descriptions;
    const QJsonObject log = objectOf(
        validate({QStringLiteral("--sarif"), descriptions.good()}).output);
    const QJsonArray rules = log.value(QStringLiteral("runs"))
                                 .toArray()
                                 .at(0)
                                 .toObject()
                                 .value(QStringLiteral("tool"))
                                 .toObject()
                                 .value(QStringLiteral("driver"))
                                 .toObject()
                                 .value(QStringLiteral("rules"))
                                 .toArray();
    QVERIFY(rules.size() > 60);
    for (const auto &rule : rules) {
        const QString name = rule.toObject().value(QStringLiteral("id")).toString();

        const ToolResult result = runTool({QStringLiteral("help"), name});

        QVERIFY2(result.output.startsWith(name + QLatin1Char(' ')), qPrintable(name));
        QCOMPARE(result.exitCode, 0);
    }
}

void tst_ToolValidate::helpOfASubcommandIsItsOwn()
{
    QCOMPARE(runTool({QStringLiteral("help"), QStringLiteral("validate")}).output,
             validate({QStringLiteral("--help")}).output);
}

void tst_ToolValidate::helpWithoutATopicIsTheGeneralOne()
{
    const QString help = runTool({QStringLiteral("help")}).output;

    QVERIFY(help.startsWith(QStringLiteral("Usage: tessel SUBCOMMAND")));
    QCOMPARE(help, runTool({QStringLiteral("--help")}).output);
}

void tst_ToolValidate::unknownTopicHasAHint()
{
    const ToolResult result = runTool({QStringLiteral("help"), QStringLiteral("slot-overlaps")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: help: no subcommand or rule 'slot-overlaps' (did you mean "
                            "'slots-overlap'?); see 'tessel --help'\n"));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

QTEST_GUILESS_MAIN(tst_ToolValidate)
#include "tst_ToolValidate.moc"
