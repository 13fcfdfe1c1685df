#include "ProcessDataManagement/BuilderTrees.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "support/LogCapture.h"

#include <limits>

namespace {

using BuilderTrees::offsetOf;

using Records = QVector<ProcessDataBuilder::SharedMemoryData>;

QList<QFileInfo> files(const DescriptionDirectory &directory, const QStringList &names)
{
    QList<QFileInfo> list;
    for (const QString &name : names) {
        list.append(QFileInfo(directory.filePath(name)));
    }
    return list;
}

} // namespace

/// The walk over the files in the first phase of a build, which writes nothing.
class tst_ProcessDataBuilderDirectoryFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noFilesIsFalseWithoutAMessage();
    void eachFileBeginsAtAMultipleOfFour_data();
    void eachFileBeginsAtAMultipleOfFour();
    void filesAreTakenAsGiven();
    void recordsAreAppended();
    void firstFileThatDoesNotParseIsFalse();
    void laterFileThatDoesNotParseIsTrue();
    void filesBehindOneThatDoesNotParseAreLeftOut();
    void refusedLeafFailsWhateverWasBefore();
    void fileOfTwoNamesIsOneRecord();
    void nothingIsWritten();
};

void tst_ProcessDataBuilderDirectoryFiles::noFilesIsFalseWithoutAMessage()
{
    int offset = 12;
    Records records;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().updateOffsetFromDir({}, offset, records));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(offset, 12);
    QVERIFY(records.isEmpty());
}

void tst_ProcessDataBuilderDirectoryFiles::eachFileBeginsAtAMultipleOfFour_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("next");

    QTest::newRow("0") << 0 << 0;
    QTest::newRow("1") << 1 << 4;
    QTest::newRow("2") << 2 << 4;
    QTest::newRow("3") << 3 << 4;
    QTest::newRow("4") << 4 << 4;
    QTest::newRow("5") << 5 << 8;
    // No size of anything, but numbers that a file may hold.
    QTest::newRow("-1") << -1 << 0;
    QTest::newRow("-3") << -3 << 0;
    QTest::newRow("-4") << -4 << -4;
    QTest::newRow("-5") << -5 << -4;
    QTest::newRow("largest") << std::numeric_limits<int>::max() << std::numeric_limits<int>::min();
}

void tst_ProcessDataBuilderDirectoryFiles::eachFileBeginsAtAMultipleOfFour()
{
    QFETCH(int, size);
    const DescriptionDirectory directory;
    QVERIFY(directory.write("a.process.json",
                            Description::root({{"a", Description::leaf(1, size, 0)}})));
    QVERIFY(
        directory.write("b.process.json", Description::root({{"b", Description::leaf(1, 0, 0)}})));
    int offset = 0;
    Records records;

    QVERIFY(ProcessDataBuilder().updateOffsetFromDir(
        files(directory, {"a.process.json", "b.process.json"}), offset, records));

    QTEST(offsetOf(records.at(1).root, "b").toInt(), "next");
    QTEST(offset, "next");
}

void tst_ProcessDataBuilderDirectoryFiles::filesAreTakenAsGiven()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write("a.process.json",
                            Description::root({{"a", Description::leaf(1, 6, 3, 8)}})));
    QVERIFY(directory.write("b.process.json",
                            Description::root({{"b", Description::leaf(1, 4, 1, 0)}})));
    int offset = 0;
    Records records;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().updateOffsetFromDir(
        files(directory, {"b.process.json", "a.process.json"}), offset, records));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(records.size(), 2);
    QCOMPARE(records.at(0).filePath, directory.filePath("b.process.json"));
    QCOMPARE(offsetOf(records.at(0).root, "b").toInt(), 0);
    QVERIFY(!records.at(0).modified);
    QCOMPARE(records.at(1).filePath, directory.filePath("a.process.json"));
    QCOMPARE(offsetOf(records.at(1).root, "a").toInt(), 8);
    QVERIFY(!records.at(1).modified);
    QCOMPARE(offset, 20);
}

void tst_ProcessDataBuilderDirectoryFiles::recordsAreAppended()
{
    const DescriptionDirectory directory;
    QVERIFY(
        directory.write("a.process.json", Description::root({{"a", Description::leaf(1, 6, 3)}})));
    const QString formerDirectory = QDir::currentPath();
    QVERIFY(QDir::setCurrent(directory.path()));
    int offset = 6;
    Records records(1);

    const bool result = ProcessDataBuilder().updateOffsetFromDir({QFileInfo("a.process.json")},
                                                                 offset, records);
    QVERIFY(QDir::setCurrent(formerDirectory));

    QVERIFY(result);
    QCOMPARE(records.size(), 2);
    QVERIFY(records.at(0).root.isNull());
    QCOMPARE(QFileInfo(records.at(1).filePath).canonicalFilePath(),
             QFileInfo(directory.filePath("a.process.json")).canonicalFilePath());
    QVERIFY(QDir::isAbsolutePath(records.at(1).filePath));
    QVERIFY(records.at(1).modified);
    // The start is not rounded, only the end.
    QCOMPARE(offsetOf(records.at(1).root, "a").toInt(), 6);
    QCOMPARE(offset, 16);
}

void tst_ProcessDataBuilderDirectoryFiles::firstFileThatDoesNotParseIsFalse()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write("a.process.json", QByteArray("{}")));
    QVERIFY(
        directory.write("b.process.json", Description::root({{"b", Description::leaf(1, 4, 1)}})));
    int offset = 0;
    Records records;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().updateOffsetFromDir(
        files(directory, {"a.process.json", "b.process.json"}), offset, records));

    COMPARE_LOG(log, warning("key 'type' not found in JSON object"),
                warning(QStringLiteral("Can't parse sharedMemory file: \"%1\"")
                            .arg(directory.filePath("a.process.json"))));
    QVERIFY(records.isEmpty());
    QCOMPARE(offset, 0);
}

void tst_ProcessDataBuilderDirectoryFiles::laterFileThatDoesNotParseIsTrue()
{
    const DescriptionDirectory directory;
    QVERIFY(
        directory.write("a.process.json", Description::root({{"a", Description::leaf(1, 4, 1)}})));
    const QString missing = directory.filePath("b.process.json");
    int offset = 0;
    Records records;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().updateOffsetFromDir(
        files(directory, {"a.process.json", "b.process.json"}), offset, records));

    COMPARE_LOG(log,
                warning(QStringLiteral("Can't open file  \"%1\"  IO Error:  "
                                       "\"No such file or directory\"")
                            .arg(missing)),
                warning(QStringLiteral("Can't parse sharedMemory file: \"%1\"").arg(missing)));
    QCOMPARE(records.size(), 1);
    QCOMPARE(offset, 8);
}

void tst_ProcessDataBuilderDirectoryFiles::filesBehindOneThatDoesNotParseAreLeftOut()
{
    const DescriptionDirectory directory;
    for (const QString name : {"a.process.json", "c.process.json"}) {
        QVERIFY(directory.write(name, Description::root({{"a", Description::leaf(1, 4, 1)}})));
    }
    int offset = 0;
    Records records;

    QVERIFY(ProcessDataBuilder().updateOffsetFromDir(
        files(directory, {"a.process.json", "b.process.json", "c.process.json"}), offset, records));

    QCOMPARE(records.size(), 1);
    QCOMPARE(records.first().filePath, directory.filePath("a.process.json"));
    QCOMPARE(offset, 8);
}

void tst_ProcessDataBuilderDirectoryFiles::refusedLeafFailsWhateverWasBefore()
{
    const DescriptionDirectory directory;
    QVERIFY(
        directory.write("a.process.json", Description::root({{"a", Description::leaf(1, 4, 1)}})));
    QVERIFY(directory.write(
        "b.process.json", Description::root({{"b", Description::without(Description::leaf(1, 4, 1),
                                                                        "offsetSharedMemory")}})));
    int offset = 0;
    Records records;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().updateOffsetFromDir(
        files(directory, {"a.process.json", "b.process.json"}), offset, records));

    COMPARE_LOG(log, warning("Key not found \"offsetSharedMemory\""),
                warning("Key can't set. Property name: \"offsetSharedMemory\" Value: "
                        "QVariant(int, 8) State: 4"),
                warning("OffsetSharedMemory can't set"),
                warning(QStringLiteral("Can't set sharedMemoryOffset: \"%1\"")
                            .arg(directory.filePath("b.process.json"))));
    QCOMPARE(records.size(), 1);
    QCOMPARE(offset, 8);
}

void tst_ProcessDataBuilderDirectoryFiles::fileOfTwoNamesIsOneRecord()
{
    const DescriptionDirectory directory;
    QVERIFY(
        directory.write("b.process.json", Description::root({{"x", Description::leaf(1, 4, 1)}})));
    QVERIFY(
        directory.write("d.process.json", Description::root({{"x", Description::leaf(1, 4, 1)}})));
    QVERIFY(QFile::link("b.process.json", directory.filePath("a.process.json")));
    QVERIFY(QFile::link("b.process.json", directory.filePath("c.process.json")));
    int offset = 0;
    Records records;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().updateOffsetFromDir(
        files(directory, {"a.process.json", "b.process.json", "c.process.json", "d.process.json"}),
        offset, records));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(records.size(), 2);
    QCOMPARE(records.at(0).filePath, directory.filePath("a.process.json"));
    QCOMPARE(records.at(1).filePath, directory.filePath("d.process.json"));
    QCOMPARE(offset, 16);
}

void tst_ProcessDataBuilderDirectoryFiles::nothingIsWritten()
{
    const DescriptionDirectory directory;
    QVERIFY(
        directory.write("a.process.json", Description::root({{"a", Description::leaf(1, 4, 1)}})));
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    int offset = 0;
    Records records;

    QVERIFY(ProcessDataBuilder().updateOffsetFromDir(files(directory, {"a.process.json"}), offset,
                                                     records));

    QVERIFY(records.first().modified);
    QCOMPARE(directory.snapshot(), former);
}

QTEST_GUILESS_MAIN(tst_ProcessDataBuilderDirectoryFiles)
#include "tst_ProcessDataBuilderDirectoryFiles.moc"
