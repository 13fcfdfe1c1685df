#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "support/LogCapture.h"
#include "support/WorkingDirectory.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;

/// A process file with the three members as JSON text; an empty one is left out.
QByteArray processFile(const QByteArray &doubleBuffer, const QByteArray &size,
                       const QByteArray &key)
{
    QByteArray text = R"({"type":"treenode","value":{})";
    if (!doubleBuffer.isEmpty()) {
        text += ",\"doubleBuffer\":" + doubleBuffer;
    }
    if (!size.isEmpty()) {
        text += ",\"sizeOfSharedMemory\":" + size;
    }
    if (!key.isEmpty()) {
        text += ",\"keyProcessDataMemory\":" + key;
    }
    return text + '}';
}

QByteArray usualFile()
{
    return processFile("true", "96", "\"K\"");
}

/// The three results, with what stands there before.
struct Facts
{
    bool doubleBuffer = true;
    int size = -7;
    QString key = "former";

    bool readFrom(const QString &path)
    {
        return Access::getSharedMemoryInfoFromDir(QFileInfo(path), doubleBuffer, size, key);
    }
    QString toText() const
    {
        return QString("%1 %2 %3").arg(doubleBuffer ? "true" : "false").arg(size).arg(key);
    }
};

LogLine notParsed(const QString &path)
{
    return warning("Can't parse process data file: \"" + path + '"');
}

LogLine noType()
{
    return warning("key 'type' not found in JSON object");
}

LogLine notReadable(int size, const QString &key, const QString &path)
{
    return warning(QString("Can't read sharedMemorySize or -Key: %1 \"%2\" path: \"%3\"")
                       .arg(size)
                       .arg(key, path));
}

} // namespace

/// Each test begins with an empty directory "dir".
class tst_DirectoryInformation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void factsOfOneFileAreRead();
    void factsOfAgreeingFilesAreRead();
    void factsAreReadAtEveryDepth();
    void factsAreConverted_data();
    void factsAreConverted();
    void convertedFactsAgree();
    void missingOrWrongFactIsReported_data();
    void missingOrWrongFactIsReported();
    void directoryWithoutDescriptionIsReported_data();
    void directoryWithoutDescriptionIsReported();

    void firstGoodFileIsTheReference();
    void firstGoodFileIsComparedWithThoseBehindIt();
    void firstFileByNameIsTheReference();
    void unreadableFactsShowTheReferenceOnceThereIsOne();
    void noGoodFileLeavesTheResults();
    void brokenFileAfterwardsKeepsTheResults();
    void oneDifferenceIsReported_data();
    void oneDifferenceIsReported();
    void allDifferencesOfAFileAreReported();
    void allBadFilesAreReported();
    void differencesAreAgainstTheReferenceNotTheNeighbour();
    void readingChangesNothingOnTheDisk();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_DirectoryInformation::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("dir");
}

void tst_DirectoryInformation::cleanup()
{
    m_directory.reset();
}

void tst_DirectoryInformation::factsOfOneFileAreRead()
{
    writeFile("dir/a.process.json", processFile("false", "96", "\"K\""));
    Facts facts;
    LogCapture log;

    QVERIFY(facts.readFrom("dir"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(facts.toText(), QString("false 96 K"));
}

void tst_DirectoryInformation::factsOfAgreeingFilesAreRead()
{
    writeFile("dir/a.process.json", processFile("false", "96", "\"K\""));
    writeFile("dir/b.process.json", processFile("false", "96", "\"K\""));
    writeFile("dir/c.d.process.json", processFile("false", "96", "\"K\""));
    // None of these is asked.
    writeFile("dir/d.config.json", processFile("true", "1", "\"C\""));
    writeFile("dir/process.json", processFile("true", "2", "\"P\""));
    writeFile("dir/.e.process.json", processFile("true", "3", "\"H\""));
    Facts facts;
    LogCapture log;

    QVERIFY(facts.readFrom("dir"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(facts.toText(), QString("false 96 K"));
}

void tst_DirectoryInformation::factsAreReadAtEveryDepth()
{
    writeFile("dir/sub/a.process.json", usualFile());
    writeFile("dir/sub/below/b.process.json", processFile("true", "100", "\"K\""));
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, warning("SharedMemorySize is different: 96 != 100 "
                             "\"dir/sub/below/b.process.json\""));
    QCOMPARE(facts.toText(), QString("true 96 K"));
}

void tst_DirectoryInformation::factsAreConverted_data()
{
    QTest::addColumn<QByteArray>("doubleBuffer");
    QTest::addColumn<QByteArray>("size");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QString>("expected");

    QTest::newRow("as they are") << QByteArray("false") << QByteArray("96") << QByteArray("\"K\"")
                                 << "false 96 K";
    QTest::newRow("size as text") << QByteArray("false") << QByteArray("\"96\"")
                                  << QByteArray("\"K\"") << "false 96 K";
    QTest::newRow("size as a text without number")
        << QByteArray("false") << QByteArray("\"many\"") << QByteArray("\"K\"") << "false 0 K";
    QTest::newRow("key as number")
        << QByteArray("false") << QByteArray("96") << QByteArray("12") << "false 96 12";
    QTest::newRow("double buffer as number")
        << QByteArray("0") << QByteArray("96") << QByteArray("\"K\"") << "false 96 K";
    QTest::newRow("double buffer as text")
        << QByteArray("\"false\"") << QByteArray("96") << QByteArray("\"K\"") << "false 96 K";
    QTest::newRow("nothing in it")
        << QByteArray("false") << QByteArray("0") << QByteArray("\"\"") << "false 0 ";
}

void tst_DirectoryInformation::factsAreConverted()
{
    QFETCH(QByteArray, doubleBuffer);
    QFETCH(QByteArray, size);
    QFETCH(QByteArray, key);
    QFETCH(QString, expected);
    writeFile("dir/a.process.json", processFile(doubleBuffer, size, key));
    Facts facts;
    LogCapture log;

    QVERIFY(facts.readFrom("dir"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(facts.toText(), expected);
}

void tst_DirectoryInformation::convertedFactsAgree()
{
    writeFile("dir/a.process.json", processFile("true", "96", "\"12\""));
    writeFile("dir/b.process.json", processFile("\"true\"", "\"96\"", "12"));
    writeFile("dir/c.process.json", processFile("1", "96.0", "12"));
    Facts facts;
    LogCapture log;

    QVERIFY(facts.readFrom("dir"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(facts.toText(), QString("true 96 12"));
}

void tst_DirectoryInformation::missingOrWrongFactIsReported_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("no double buffer") << processFile("", "96", "\"K\"");
    QTest::newRow("no size") << processFile("true", "", "\"K\"");
    QTest::newRow("no key") << processFile("true", "96", "");
    QTest::newRow("nothing") << processFile("", "", "");
    QTest::newRow("double buffer as object") << processFile("{}", "96", "\"K\"");
    QTest::newRow("size as object") << processFile("true", "{\"a\":1}", "\"K\"");
    QTest::newRow("size as list") << processFile("true", "[96]", "\"K\"");
    QTest::newRow("key as object") << processFile("true", "96", "{\"a\":\"K\"}");
    QTest::newRow("facts below the root")
        << QByteArray(R"({"type":"treenode","value":{"a":)") + usualFile() + "}}";
}

void tst_DirectoryInformation::missingOrWrongFactIsReported()
{
    QFETCH(QByteArray, content);
    writeFile("dir/a.process.json", content);
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, notReadable(-7, "former", "dir/a.process.json"));
    QCOMPARE(facts.toText(), QString("true -7 former"));
}

void tst_DirectoryInformation::directoryWithoutDescriptionIsReported_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("empty") << "dir";
    QTest::newRow("missing") << "missing";
    QTest::newRow("other files only") << "others";
    QTest::newRow("a file") << "file.process.json";
}

void tst_DirectoryInformation::directoryWithoutDescriptionIsReported()
{
    QFETCH(QString, path);
    makeDirectory("dir/sub");
    writeFile("others/a.config.json", usualFile());
    writeFile("others/process.json", usualFile());
    writeFile("others/myprocess.json", usualFile());
    writeFile("others/a.process.json.bak", usualFile());
    writeFile("others/a.Process.json", usualFile());
    writeFile("file.process.json", usualFile());
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom(path));

    COMPARE_LOG(log, warning("No sharedMemory description: \"" + path + '"'));
    QCOMPARE(facts.toText(), QString("true -7 former"));
}

void tst_DirectoryInformation::firstGoodFileIsTheReference()
{
    writeFile("dir/a.process.json", "{}");
    writeFile("dir/b.process.json", processFile("false", "96", "\"K\""));
    writeFile("dir/c.process.json", processFile("false", "96", "\"K\""));
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, noType(), notParsed("dir/a.process.json"));
    QCOMPARE(facts.toText(), QString("false 96 K"));
}

void tst_DirectoryInformation::firstGoodFileIsComparedWithThoseBehindIt()
{
    writeFile("dir/a.process.json", "{}");
    writeFile("dir/b.process.json", usualFile());
    writeFile("dir/c.process.json", processFile("true", "100", "\"K\""));
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, noType(), notParsed("dir/a.process.json"),
                warning("SharedMemorySize is different: 96 != 100 \"dir/c.process.json\""));
    QCOMPARE(facts.toText(), QString("true 96 K"));
}

void tst_DirectoryInformation::firstFileByNameIsTheReference()
{
    writeFile("dir/b.process.json", processFile("false", "2", "\"K\""));
    writeFile("dir/a/z.process.json", processFile("false", "1", "\"K\""));
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, warning("SharedMemorySize is different: 1 != 2 \"dir/b.process.json\""));
    QCOMPARE(facts.toText(), QString("false 1 K"));
}

void tst_DirectoryInformation::unreadableFactsShowTheReferenceOnceThereIsOne()
{
    writeFile("dir/a.process.json", processFile("true", "", "\"K\""));
    writeFile("dir/b.process.json", usualFile());
    writeFile("dir/c.process.json", processFile("false", "1", ""));
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, notReadable(-7, "former", "dir/a.process.json"),
                notReadable(96, "K", "dir/c.process.json"));
    QCOMPARE(facts.toText(), QString("true 96 K"));
}

void tst_DirectoryInformation::noGoodFileLeavesTheResults()
{
    writeFile("dir/a.process.json", "{}");
    writeFile("dir/b.process.json", processFile("false", "1", ""));
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, noType(), notParsed("dir/a.process.json"),
                notReadable(-7, "former", "dir/b.process.json"));
    QCOMPARE(facts.toText(), QString("true -7 former"));
}

void tst_DirectoryInformation::brokenFileAfterwardsKeepsTheResults()
{
    writeFile("dir/a.process.json", usualFile());
    writeFile("dir/b.process.json", "{}");
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, noType(), notParsed("dir/b.process.json"));
    QCOMPARE(facts.toText(), QString("true 96 K"));
}

void tst_DirectoryInformation::oneDifferenceIsReported_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");

    QTest::newRow("double buffer")
        << processFile("false", "96", "\"K\"") << "DoubleBuffer value is different: true != false";
    QTest::newRow("size") << processFile("true", "-1", "\"K\"")
                          << "SharedMemorySize is different: 96 != -1";
    QTest::newRow("key") << processFile("true", "96", "\"L\"")
                         << "SharedMemoryKey is different: \"K\" != \"L\"";
    QTest::newRow("case of the key")
        << processFile("true", "96", "\"k\"") << "SharedMemoryKey is different: \"K\" != \"k\"";
    QTest::newRow("empty key") << processFile("true", "96", "\"\"")
                               << "SharedMemoryKey is different: \"K\" != \"\"";
}

void tst_DirectoryInformation::oneDifferenceIsReported()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    writeFile("dir/a.process.json", usualFile());
    writeFile("dir/b.process.json", content);
    writeFile("dir/c.process.json", usualFile());
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, warning(message + " \"dir/b.process.json\""));
    QCOMPARE(facts.toText(), QString("true 96 K"));
}

void tst_DirectoryInformation::allDifferencesOfAFileAreReported()
{
    writeFile("dir/a.process.json", processFile("false", "96", "\"K\""));
    writeFile("dir/b.process.json", processFile("true", "100", "\"L\""));
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log,
                warning("DoubleBuffer value is different: false != true \"dir/b.process.json\""),
                warning("SharedMemorySize is different: 96 != 100 \"dir/b.process.json\""),
                warning("SharedMemoryKey is different: \"K\" != \"L\" \"dir/b.process.json\""));
    QCOMPARE(facts.toText(), QString("false 96 K"));
}

void tst_DirectoryInformation::allBadFilesAreReported()
{
    writeFile("dir/a.process.json", usualFile());
    writeFile("dir/b.process.json", "{}");
    writeFile("dir/c.process.json", processFile("true", "96", ""));
    writeFile("dir/d.process.json", processFile("true", "97", "\"K\""));
    writeFile("dir/e.process.json", usualFile());
    writeFile("dir/f.process.json", processFile("true", "96", "\"L\""));
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, noType(), notParsed("dir/b.process.json"),
                notReadable(96, "K", "dir/c.process.json"),
                warning("SharedMemorySize is different: 96 != 97 \"dir/d.process.json\""),
                warning("SharedMemoryKey is different: \"K\" != \"L\" \"dir/f.process.json\""));
    QCOMPARE(facts.toText(), QString("true 96 K"));
}

void tst_DirectoryInformation::differencesAreAgainstTheReferenceNotTheNeighbour()
{
    writeFile("dir/a.process.json", usualFile());
    writeFile("dir/b.process.json", processFile("true", "100", "\"K\""));
    writeFile("dir/c.process.json", processFile("true", "100", "\"K\""));
    Facts facts;
    LogCapture log;

    QVERIFY(!facts.readFrom("dir"));

    COMPARE_LOG(log, warning("SharedMemorySize is different: 96 != 100 \"dir/b.process.json\""),
                warning("SharedMemorySize is different: 96 != 100 \"dir/c.process.json\""));
}

void tst_DirectoryInformation::readingChangesNothingOnTheDisk()
{
    writeFile("dir/a.process.json", usualFile());
    writeFile("dir/d.config.json", R"({ "type":"one" })");
    const auto states = statesBelow(".");
    Facts facts;
    LogCapture log;

    QVERIFY(facts.readFrom("dir"));
    QVERIFY(!Access::getDependency(QDir("dir"), "d").isEmpty());

    QVERIFY(statesBelow(".") == states);
}

QTEST_GUILESS_MAIN(tst_DirectoryInformation)

#include "tst_DirectoryInformation.moc"
