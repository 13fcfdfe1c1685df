#include "ToolDescription.h"
#include "ToolFolder.h"
#include "ToolProcess.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using Metadata = ToolDescription::Metadata;

namespace {

ToolResult gen(const QStringList &arguments)
{
    return runTool(QStringList{QStringLiteral("gen"), QStringLiteral("cpp")} + arguments);
}

QString contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

const QString tank = QStringLiteral(EXAMPLES "/publish/tank.process.json");

} // namespace

/// What `tessel gen cpp --json` says of the header that it has written.
class tst_ToolGenReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_folder.reset(new QTemporaryDir); }

    void reportTellsWhatWasWritten();
    void nameIsTheWayThroughTheTree();
    void typeIsThatOfTheAccessor();
    void leafWithoutAnAccessorIsLeftOut();
    void dryRunReportsTheSame();
    void folderAndPatternsAreReported();
    void defaultDescriptionMayBeLeftOut();
    void twoOnStandardOutputAreRefused_data();
    void twoOnStandardOutputAreRefused();
    void typosAreRefused();
    void nothingIsReportedOfAFailure();
    void descriptionThatMayNotBeReadIsRefused();
    void fullOutputIsAFailure();
    void closedPipeIsNoFailure();

private:
    QString path(const QString &name) const { return m_folder->filePath(name); }

    QScopedPointer<QTemporaryDir> m_folder;
};

void tst_ToolGenReport::reportTellsWhatWasWritten()
{
    const QString header = path("tank.hpp");

    const ToolResult result = gen({tank, "-o", header, "--json"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    const QString text = contentOf(header);
    QCOMPARE(text, gen({tank}).output);
    const QRegularExpression fingerprint("layoutFingerprint = Q_UINT64_C\\((0x[0-9a-f]{16})\\)");
    QCOMPARE(result.output,
             QString(R"({"file": "%1", "namespace": "tank", "fingerprint": "%2", "accessors": [
  {"url": "tank/level", "name": "tank.level", "type": "double", "class": "Double"},
  {"url": "tank/temperature", "name": "tank.temperature", "type": "float", "class": "Double"}
], "leftOut": []}
)")
                 .arg(header, fingerprint.match(text).captured(1)));
}

void tst_ToolGenReport::nameIsTheWayThroughTheTree()
{
    ToolDescription description;
    description.add("pump 1/speed-max", "int16", Metadata::ErrorState, 2);
    description.add("class", "boolean", Metadata::ErrorState, 1);

    const QJsonArray accessors =
        QJsonDocument::fromJson(
            gen({description.write(), "--json", "-o", path("a.hpp")}).output.toUtf8())
            .object()
            .value("accessors")
            .toArray();

    QCOMPARE(accessors.size(), 2);
    QCOMPARE(accessors[1].toObject().value("url").toString(), QString("pump 1/speed-max"));
    QCOMPARE(accessors[1].toObject().value("name").toString(), QString("pump_1.speed_max"));
    QCOMPARE(accessors[0].toObject().value("name").toString(), QString("class_"));
}

void tst_ToolGenReport::typeIsThatOfTheAccessor()
{
    ToolDescription description;
    description.add("a", "int16", Metadata::ErrorState, 2);
    description.add("b", "uint64", Metadata::ErrorState, 8);
    description.add("c", "boolean", Metadata::ErrorState, 1);
    description.add("d", "string", Metadata::ErrorState, 16);
    const QString header = path("a.hpp");

    const QJsonArray accessors =
        QJsonDocument::fromJson(gen({description.write(), "--json", "-o", header}).output.toUtf8())
            .object()
            .value("accessors")
            .toArray();

    const QStringList types{"int16", "uint64", "boolean", "string"};
    const QStringList classes{"Integer<-32768, 32767>", "Exact<quint64>", "Boolean",
                              "Exact<QString>"};
    QCOMPARE(accessors.size(), types.size());
    for (int i = 0; i < types.size(); ++i) {
        const QJsonObject accessor = accessors[i].toObject();
        QCOMPARE(accessor.value("type").toString(), types[i]);
        QCOMPARE(accessor.value("class").toString(), classes[i]);
        QVERIFY(contentOf(header).contains(
            QString("leaf::%1 %2;\n").arg(classes[i], accessor.value("name").toString())));
    }
}

void tst_ToolGenReport::leafWithoutAnAccessorIsLeftOut()
{
    ToolDescription description;
    description.add("n/a", "colour", Metadata::ErrorState, 8);
    description.add("n/b", "double", Metadata::ErrorState, 8);

    const QJsonObject report =
        QJsonDocument::fromJson(
            gen({description.write(), "--json", "-o", path("a.hpp")}).output.toUtf8())
            .object();

    QCOMPARE(report.value("accessors").toArray().size(), 1);
    QCOMPARE(report.value("leftOut").toArray(), QJsonArray{"n/a"});
}

void tst_ToolGenReport::dryRunReportsTheSame()
{
    const QString header = path("tank.hpp");

    const ToolResult dry = gen({tank, "-o", header, "--json", "--dry-run"});

    QVERIFY(!QFile::exists(header));
    QCOMPARE(dry.exitCode, 0);
    QCOMPARE(dry.output, gen({tank, "-o", header, "--json"}).output);
    // Nothing else goes to standard output then.
    QVERIFY(gen({tank, "--json", "--dry-run"}).output.startsWith("{\"file\": \"-\", "));
}

void tst_ToolGenReport::folderAndPatternsAreReported()
{
    DescriptionDirectory device("device");
    QVERIFY(device.copy(EXAMPLES "/device"));
    QCOMPARE(runBuild(device.path()).exitCode, 0);

    const QJsonArray accessors =
        QJsonDocument::fromJson(
            gen({device.path(), "inputs/*/value", "--json", "-o", path("a.hpp")}).output.toUtf8())
            .object()
            .value("accessors")
            .toArray();

    QVERIFY(!accessors.isEmpty());
    QCOMPARE(accessors[0].toObject().value("url").toString(), QString("inputs/channel1/value"));
    QCOMPARE(accessors[0].toObject().value("name").toString(), QString("inputs.channel1.value"));
}

void tst_ToolGenReport::defaultDescriptionMayBeLeftOut()
{
    const ToolResult result = runTool({"gen", "cpp", "--json", "-o", path("tank.hpp")},
                                      {"TESSEL_DIR=" + tank});

    QCOMPARE(result.output, gen({tank, "--json", "-o", path("tank.hpp")}).output);
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolGenReport::twoOnStandardOutputAreRefused_data()
{
    QTest::addColumn<QStringList>("output");
    QTest::newRow("without a file") << QStringList();
    QTest::newRow("standard output") << QStringList{"-o", "-"};
}

void tst_ToolGenReport::twoOnStandardOutputAreRefused()
{
    QFETCH(QStringList, output);

    const ToolResult result = gen(QStringList{tank, "--json"} + output);

    QCOMPARE(result.error,
             QString("tessel: gen: --json and the header would both go to standard output; name a "
                     "file with --output; see 'tessel gen --help'\n"));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolGenReport::typosAreRefused()
{
    const ToolResult result = gen({tank, "--jsno", "-o", path("tank.hpp")});

    QCOMPARE(result.error, QString("tessel: gen: unknown option '--jsno' (did you mean '--json'?); "
                                   "see 'tessel gen --help'\n"));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolGenReport::nothingIsReportedOfAFailure()
{
    const ToolResult result = gen({tank, "--json", "-o", path("none/tank.hpp")});

    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolGenReport::descriptionThatMayNotBeReadIsRefused()
{
    if (!makePermissionsCount()) {
        QSKIP("the permissions of files do not count for this user");
    }
    ToolDescription description;
    description.add("a", "double", Metadata::ErrorState, 8);
    const QString file = description.write();
    const NarrowPermissions narrow(file, {});

    for (const QStringList &options : {QStringList(), QStringList{"--json", "-o", path("a.hpp")}}) {
        const ToolResult result = gen(QStringList(file) + options);

        QCOMPARE(result.error, QString("tessel: %1: no permission to read it\n").arg(file));
        QCOMPARE(result.output, QString());
        QCOMPARE(result.exitCode, 4);
    }
    QVERIFY(!QFile::exists(path("a.hpp")));
}

void tst_ToolGenReport::fullOutputIsAFailure()
{
    QProcess shell;
    shell.start("/bin/sh", {"-c", "exec \"$0\" gen cpp \"$1\" --json -o \"$2\" >/dev/full",
                            TESSEL_TOOL, tank, path("tank.hpp")});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QString("tessel: standard output: No space left on device\n"));
    QCOMPARE(shell.exitCode(), 9);
}

void tst_ToolGenReport::closedPipeIsNoFailure()
{
    QCOMPARE(exitCodeWithoutReader({"gen", "cpp", tank, "--json", "-o", path("tank.hpp")}), 0);
    QVERIFY(QFile::exists(path("tank.hpp")));
}

QTEST_GUILESS_MAIN(tst_ToolGenReport)
#include "tst_ToolGenReport.moc"
