#include "HeldRegion.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <limits>
#include <memory>

#include <sys/stat.h>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

/// `tessel snapshot`: one consistent set in a file.
class tst_ToolSnapshot : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void fileHoldsTheSet();
    void singleBufferHasNoGeneration();
    void patternsAreKept();
    void standardOutputIsWritten();
    void formerFileIsReplacedWhole();
    void dryRunWritesNothing();
    void whatWasWrittenIsToldAsJson();
    void whatIsNoFileStaysAsItIs_data();
    void whatIsNoFileStaysAsItIs();
    void missingFolderIsTold();
    void fullOutputIsAFailure();
    void closedPipeIsNoFailure();
    void descriptionMayBeLeftOut();
    void missingRegionWritesNothing();
    void unknownUrlIsTold();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();

private:
    QString target() const { return m_description->path(QStringLiteral("s.json")); }
    ToolResult snapshot(const QStringList &urls = {}, const QStringList &options = {})
    {
        return runTool(QStringList{QStringLiteral("snapshot"), QStringLiteral("-o"), target()}
                       + options + QStringList(m_file) + urls);
    }
    QByteArray written() const
    {
        QFile file(target());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("nothing");
    }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolSnapshot::init()
{
    m_log = std::make_unique<LogCapture>();
    m_description = std::make_unique<ToolDescription>();
    m_description->add(QStringLiteral("n/level"), QStringLiteral("double"), Metadata::ErrorState, 8,
                       {{QStringLiteral("unit"), QStringLiteral("m")}});
    m_description->add(QStringLiteral("n/count"), QStringLiteral("uint64"), Metadata::ErrorState,
                       8);
    m_description->add(QStringLiteral("broken"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->write(QStringLiteral("n/level"), validValue(1.0 / 3.0)));
    QVERIFY(m_region->write(QStringLiteral("n/count"),
                            validValue(std::numeric_limits<quint64>::max())));
    QVERIFY(m_region->publish(QStringLiteral("broken"),
                              ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
}

void tst_ToolSnapshot::cleanup()
{
    m_region.reset();
    m_description.reset();
    m_log.reset();
}

void tst_ToolSnapshot::fileHoldsTheSet()
{
    const ToolResult result = snapshot();

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 0);
    const QString time = QStringLiteral("\"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:.]{12}Z\"");
    const QString shown = QString::fromUtf8(written());
    const QString values = QStringLiteral(
        "  \"urls\": [],\n"
        "  \"values\": [\n"
        "    {\"url\": \"broken\", \"type\": \"int32\", \"value\": null, \"state\": 9, "
        "\"stateName\": \"timeout\", \"unit\": \"\"},\n"
        "    {\"url\": \"n/level\", \"type\": \"double\", \"value\": 0.3333333333333333, "
        "\"state\": 0, \"stateName\": \"valid\", \"unit\": \"m\"},\n"
        "    {\"url\": \"n/count\", \"type\": \"uint64\", \"value\": 18446744073709551615, "
        "\"state\": 0, \"stateName\": \"valid\", \"unit\": \"\"}\n"
        "  ]\n"
        "}\n");
    QVERIFY2(shown.endsWith(values), qPrintable(shown));
    const QRegularExpression head(
        QStringLiteral("^\\{\n  \"format\": \"tessel-snapshot\",\n  \"version\": 1,\n"
                       "  \"key\": \"%1\",\n  \"fingerprint\": \"0x[0-9a-f]{16}\",\n"
                       "  \"generation\": 2,\n  \"published\": %2,\n  \"time\": %2,\n  \"urls\"")
            .arg(m_description->key(), time));
    QVERIFY2(head.match(shown).hasMatch(), qPrintable(shown));
}

void tst_ToolSnapshot::singleBufferHasNoGeneration()
{
    m_region.reset();
    m_description->setRoot(QStringLiteral("doubleBuffer"), false);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->write(QStringLiteral("n/level"), validValue(2.0)));

    QCOMPARE(snapshot({QStringLiteral("n/level")}).exitCode, 0);

    const QJsonObject object = QJsonDocument::fromJson(written()).object();
    QVERIFY(object.value("generation").isNull());
    QVERIFY(object.value("published").isNull());
    QCOMPARE(object.value("values").toArray()[0].toObject().value("value").toDouble(), 2.0);
}

void tst_ToolSnapshot::patternsAreKept()
{
    QCOMPARE(snapshot({QStringLiteral("*/lev*"), QStringLiteral("n/level")}).exitCode, 0);

    const QJsonObject object = QJsonDocument::fromJson(written()).object();
    QCOMPARE(object.value("urls").toArray(), QJsonArray({"*/lev*", "n/level"}));
    QCOMPARE(object.value("values").toArray().size(), 1);
}

void tst_ToolSnapshot::standardOutputIsWritten()
{
    const ToolResult result = runTool(
        {QStringLiteral("snapshot"), QStringLiteral("--output=-"), m_file});

    QVERIFY(result.output.startsWith(QStringLiteral("{\n  \"format\": \"tessel-snapshot\",\n")));
    QCOMPARE(result.exitCode, 0);
    QVERIFY(!QFile::exists(QStringLiteral("-")));
}

void tst_ToolSnapshot::formerFileIsReplacedWhole()
{
    m_description->write(QStringLiteral("s.json"), QByteArray(100000, 'x'));

    QCOMPARE(snapshot().exitCode, 0);

    QVERIFY(QJsonDocument::fromJson(written()).isObject());
}

void tst_ToolSnapshot::dryRunWritesNothing()
{
    const ToolResult result = snapshot({}, {QStringLiteral("--dry-run")});

    QCOMPARE(result.output, QStringLiteral("3 values, not written to %1\n").arg(target()));
    QCOMPARE(result.exitCode, 0);
    QVERIFY(!QFile::exists(target()));
}

void tst_ToolSnapshot::whatWasWrittenIsToldAsJson()
{
    const QString json = QStringLiteral("--json");
    const QString object = QStringLiteral("{\"file\": \"%1\", \"values\": 3, \"written\": %2}\n");

    QCOMPARE(snapshot({}, {json, QStringLiteral("--dry-run")}).output,
             object.arg(target(), QStringLiteral("false")));
    QVERIFY(!QFile::exists(target()));
    const ToolResult result = snapshot({}, {json});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, object.arg(target(), QStringLiteral("true")));
    QVERIFY(QFile::exists(target()));
}

void tst_ToolSnapshot::whatIsNoFileStaysAsItIs_data()
{
    QTest::addColumn<bool>("isFolder");
    QTest::newRow("folder") << true;
    QTest::newRow("FIFO") << false;
}

void tst_ToolSnapshot::whatIsNoFileStaysAsItIs()
{
    QFETCH(bool, isFolder);
    const QByteArray path = target().toLocal8Bit();
    QCOMPARE(isFolder ? mkdir(path.constData(), 0700) : mkfifo(path.constData(), 0600), 0);

    const ToolResult result = snapshot();

    QCOMPARE(result.error, QStringLiteral("tessel: %1: is no regular file\n").arg(target()));
    QCOMPARE(result.exitCode, 9);
    struct stat status = {};
    QCOMPARE(stat(path.constData(), &status), 0);
    QVERIFY(isFolder ? S_ISDIR(status.st_mode) : S_ISFIFO(status.st_mode));
}

void tst_ToolSnapshot::missingFolderIsTold()
{
    const QString path = m_description->path(QStringLiteral("nowhere/s.json"));

    const ToolResult result = runTool(
        {QStringLiteral("snapshot"), QStringLiteral("-o"), path, m_file});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: no such folder\n").arg(path));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolSnapshot::fullOutputIsAFailure()
{
    QProcess tool;
    tool.setStandardOutputFile(QStringLiteral("/dev/full"));
    tool.start(QStringLiteral(TESSEL_TOOL),
               {QStringLiteral("snapshot"), QStringLiteral("-o"), QStringLiteral("-"), m_file});
    QVERIFY(tool.waitForFinished(60000));

    QCOMPARE(tool.exitCode(), 9);
}

void tst_ToolSnapshot::closedPipeIsNoFailure()
{
    QCOMPARE(exitCodeWithoutReader(
                 {QStringLiteral("snapshot"), QStringLiteral("-o"), QStringLiteral("-"), m_file}),
             0);
}

void tst_ToolSnapshot::descriptionMayBeLeftOut()
{
    const ToolResult result = runTool({QStringLiteral("snapshot"), QStringLiteral("n/*"),
                                       QStringLiteral("-o"), QStringLiteral("-")},
                                      {QStringLiteral("TESSEL_DIR=") + m_file});

    QCOMPARE(result.error, QString());
    QVERIFY(result.output.contains(QStringLiteral("\"urls\": [\"n/*\"]")));
}

void tst_ToolSnapshot::missingRegionWritesNothing()
{
    m_region.reset();

    const ToolResult result = snapshot();

    QVERIFY(result.error.contains(QStringLiteral("no region '%1'").arg(m_description->key())));
    QCOMPARE(result.exitCode, 3);
    QVERIFY(!QFile::exists(target()));
}

void tst_ToolSnapshot::unknownUrlIsTold()
{
    const ToolResult result = snapshot({QStringLiteral("n/levl")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: no element at 'n/levl' (did you mean 'n/level'?)\n")
                 .arg(m_file));
    QCOMPARE(result.exitCode, 3);
    QVERIFY(!QFile::exists(target()));
}

void tst_ToolSnapshot::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no file") << QStringList{"-o", "s.json"} << "FILE is missing";
    QTest::newRow("no output") << QStringList{"f.process.json"} << "--output is missing";
    QTest::newRow("two on standard output")
        << QStringList{"f.process.json", "-o", "-", "--json"}
        << "--json and --output - would both go to standard output";
    QTest::newRow("no name") << QStringList{"f.process.json", "-o"} << "Missing value after '-o'";
    QTest::newRow("unknown option") << QStringList{"--outptu=x", "f.process.json"}
                                    << "unknown option '--outptu' (did you mean '--output'?)";
}

void tst_ToolSnapshot::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const ToolResult result = runTool(QStringList(QStringLiteral("snapshot")) + arguments);

    QCOMPARE(result.error,
             QStringLiteral("tessel: snapshot: %1; see 'tessel snapshot --help'\n").arg(reason));
    QCOMPARE(result.exitCode, 2);
}

QTEST_GUILESS_MAIN(tst_ToolSnapshot)
#include "tst_ToolSnapshot.moc"
