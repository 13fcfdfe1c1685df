#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"

#include <csignal>

namespace {

using Record = ProcessDataBuilder::SharedMemoryData;
using Records = QVector<Record>;

/// A description that stands right with this key and 8 bytes.
QJsonObject laidOut(const QString &key)
{
    return Description::root({{"a", Description::leaf(1, 4, 1, 0)}}, key, 8);
}

Record record(const QJsonObject &json, const QString &path)
{
    Record data;
    data.root = data.parser.createNode(json, QStringLiteral("process.json"));
    data.filePath = path;
    return data;
}

LogLine framingFailure(const QString &path)
{
    return warning(
        QStringLiteral("Can not frame new process data description to file: \"%1\"").arg(path));
}

/// What the framer says of a file in a directory that is not there.
LogLine openFailure(const QString &path)
{
    return warning(QStringLiteral("Can't open file  \"%1\"  IO Error:  "
                                  "\"No such file or directory\"")
                       .arg(path));
}

QList<LogLine> refusedKey(const QString &key, const QString &path)
{
    return {warning("Key not found \"keyProcessDataMemory\""),
            warning(QStringLiteral("Key can't set. Property name: \"keyProcessDataMemory\" Value: "
                                   "QVariant(QString, \"%1\") State: 4")
                        .arg(key)),
            warning(QStringLiteral("Can't set sharedMemoryKey: \"%1\" \"%2\"").arg(key, path))};
}

QList<LogLine> refusedSize(int size, const QString &key, const QString &path)
{
    return {warning("Key not found \"sizeOfSharedMemory\""),
            warning(QStringLiteral("Key can't set. Property name: \"sizeOfSharedMemory\" Value: "
                                   "QVariant(int, %1) State: 4")
                        .arg(size)),
            warning(QStringLiteral("Can't set sizeOfSharedMemroy: \"%1\" \"%2\"").arg(key, path))};
}

} // namespace

/// The third phase of a build: size and key, and the files.
class tst_ProcessDataBuilderDirectoryWriting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sizeAndKeyMarkTheRecord_data();
    void sizeAndKeyMarkTheRecord();
    void recordWithoutKeyIsRefused();
    void recordWithoutSizeKeepsItsNewKey();

    void filesThatAreRightAreNotWritten();
    void aModifiedRecordIsWritten();
    void wrongSizeOrKeyIsWritten_data();
    void wrongSizeOrKeyIsWritten();
    void foundKeyGoesIntoAllFiles();

    void failedFramingIsReportedAndTheNextFileWritten();
    void lastFramingGivesTheResult_data();
    void lastFramingGivesTheResult();
    void recordWithoutKeyEndsTheLoopWithTrue();
    void recordWithoutSizeEndsTheLoopWithTrue();
    void recordThatEndsTheLoopKeepsTheFormerFailure();
    void nextBuildRepairsWhatAFailureLeft();
};

void tst_ProcessDataBuilderDirectoryWriting::sizeAndKeyMarkTheRecord_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("before");
    QTest::addColumn<bool>("after");

    QTest::newRow("as they are") << "key" << 8 << false << false;
    QTest::newRow("other key") << "other" << 8 << false << true;
    QTest::newRow("other size") << "key" << 12 << false << true;
    QTest::newRow("both") << "other" << 12 << false << true;
    QTest::newRow("as they are, modified before") << "key" << 8 << true << true;
}

void tst_ProcessDataBuilderDirectoryWriting::sizeAndKeyMarkTheRecord()
{
    QFETCH(QString, key);
    QFETCH(int, size);
    Record data = record(laidOut("key"), "/file");
    QFETCH(bool, before);
    data.modified = before;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().setSizeAndKeyFromSharedMemory(size, key, data));

    QCOMPARE(log.take(), QList<LogLine>());
    QTEST(data.modified, "after");
    QCOMPARE(data.root->getProperty("keyProcessDataMemory").toString(), key);
    QCOMPARE(data.root->getProperty("sizeOfSharedMemory").toInt(), size);
}

void tst_ProcessDataBuilderDirectoryWriting::recordWithoutKeyIsRefused()
{
    Record data = record(Description::without(laidOut("key"), "keyProcessDataMemory"), "/file");
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().setSizeAndKeyFromSharedMemory(12, "key", data));

    QCOMPARE(log.take(), refusedKey("key", "/file"));
    QVERIFY(!data.modified);
    QCOMPARE(data.root->getProperty("sizeOfSharedMemory").toInt(), 8);
    QVERIFY(!data.root->hasProperty("keyProcessDataMemory"));
}

void tst_ProcessDataBuilderDirectoryWriting::recordWithoutSizeKeepsItsNewKey()
{
    Record data = record(Description::without(laidOut("key"), "sizeOfSharedMemory"), "/file");
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().setSizeAndKeyFromSharedMemory(12, "other", data));

    QCOMPARE(log.take(), refusedSize(12, "other", "/file"));
    QVERIFY(data.modified);
    QCOMPARE(data.root->getProperty("keyProcessDataMemory").toString(), QString("other"));
    QVERIFY(!data.root->hasProperty("sizeOfSharedMemory"));
}

void tst_ProcessDataBuilderDirectoryWriting::filesThatAreRightAreNotWritten()
{
    const DescriptionDirectory directory;
    Records records{record(laidOut("key"), directory.filePath("a.process.json")),
                    record(laidOut("key"), directory.filePath("b.process.json"))};
    QString key = "key";
    LogCapture log;

    QVERIFY(
        ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", directory.path(), key, 8, records));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(directory.files().isEmpty());
}

void tst_ProcessDataBuilderDirectoryWriting::aModifiedRecordIsWritten()
{
    const DescriptionDirectory directory;
    Records records{record(laidOut("key"), directory.filePath("a.process.json")),
                    record(laidOut("key"), directory.filePath("b.process.json"))};
    records[1].modified = true;
    QString key = "key";

    QVERIFY(
        ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", directory.path(), key, 8, records));

    QCOMPARE(directory.files(), QStringList{"b.process.json"});
    QCOMPARE(directory.json("b.process.json"), laidOut("key"));
}

void tst_ProcessDataBuilderDirectoryWriting::wrongSizeOrKeyIsWritten_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("size");

    QTest::newRow("key") << "other" << 8;
    QTest::newRow("size") << "key" << 12;
}

void tst_ProcessDataBuilderDirectoryWriting::wrongSizeOrKeyIsWritten()
{
    QFETCH(QString, key);
    QFETCH(int, size);
    const DescriptionDirectory directory;
    Records records{record(laidOut("key"), directory.filePath("a.process.json"))};
    LogCapture log;

    QVERIFY(ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", directory.path(), key, size,
                                                         records));

    QCOMPARE(log.take(), QList<LogLine>());
    const QJsonObject json = directory.json("a.process.json");
    QCOMPARE(Description::keyOf(json), key);
    QCOMPARE(Description::sizeOf(json), size);
    QVERIFY(records.first().modified);
}

void tst_ProcessDataBuilderDirectoryWriting::foundKeyGoesIntoAllFiles()
{
    const DescriptionDirectory directory;
    Records records{
        record(laidOut("tesselFolderdevice12345"), directory.filePath("a.process.json")),
        record(laidOut("second"), directory.filePath("b.process.json"))};
    QString key;

    QVERIFY(
        ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", directory.path(), key, 8, records));

    QCOMPARE(key, QString("tesselFolderdevice12345"));
    // The first one held it already.
    QCOMPARE(directory.files(), QStringList{"b.process.json"});
    QCOMPARE(Description::keyOf(directory.json("b.process.json")), key);
}

void tst_ProcessDataBuilderDirectoryWriting::failedFramingIsReportedAndTheNextFileWritten()
{
    const DescriptionDirectory directory;
    const QString unwritable = directory.filePath("missing/a.process.json");
    Records records{record(laidOut("former"), unwritable),
                    record(laidOut("former"), directory.filePath("b.process.json"))};
    QString key = "key";
    LogCapture log;

    QVERIFY(
        ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", directory.path(), key, 8, records));

    COMPARE_LOG(log, openFailure(unwritable), framingFailure(unwritable));
    QCOMPARE(directory.files(), QStringList{"b.process.json"});
}

void tst_ProcessDataBuilderDirectoryWriting::lastFramingGivesTheResult_data()
{
    QTest::addColumn<QString>("records");
    QTest::addColumn<bool>("result");

    // g: written, f: framing fails, u: not modified, so not framed.
    QTest::newRow("one failure") << "f" << false;
    QTest::newRow("a success behind it") << "fg" << true;
    QTest::newRow("a failure behind it") << "gf" << false;
    QTest::newRow("two failures") << "ff" << false;
    QTest::newRow("failure, then nothing to write") << "fu" << false;
    QTest::newRow("failure, nothing to write, success") << "fug" << true;
    QTest::newRow("nothing to write") << "u" << true;
    QTest::newRow("success, then nothing to write") << "gu" << true;
}

void tst_ProcessDataBuilderDirectoryWriting::lastFramingGivesTheResult()
{
    QFETCH(QString, records);
    const DescriptionDirectory directory;
    Records list;
    QList<LogLine> expectedLines;
    for (int index = 0; index < records.size(); ++index) {
        const QString name = QString::number(index) + ".process.json";
        if (records.at(index) == 'f') {
            const QString path = directory.filePath("missing/" + name);
            list.append(record(laidOut("former"), path));
            expectedLines << openFailure(path) << framingFailure(path);
        } else {
            list.append(record(laidOut(records.at(index) == 'g' ? "former" : "key"),
                               directory.filePath(name)));
        }
    }
    QString key = "key";
    LogCapture log;

    QTEST(ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", directory.path(), key, 8, list),
          "result");

    QCOMPARE(log.take(), expectedLines);
    QCOMPARE(directory.files().size(), records.count('g'));
}

void tst_ProcessDataBuilderDirectoryWriting::recordWithoutKeyEndsTheLoopWithTrue()
{
    const DescriptionDirectory directory;
    const QString path = directory.filePath("b.process.json");
    Records records{record(laidOut("former"), directory.filePath("a.process.json")),
                    record(Description::without(laidOut("former"), "keyProcessDataMemory"), path),
                    record(laidOut("former"), directory.filePath("c.process.json"))};
    records[1].modified = true;
    QString key = "key";
    LogCapture log;

    QVERIFY(
        ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", directory.path(), key, 12, records));

    QCOMPARE(log.take(), refusedKey("key", path));
    QCOMPARE(directory.files(), QStringList{"a.process.json"});
    QCOMPARE(records.at(2).root->getProperty("keyProcessDataMemory").toString(), QString("former"));
}

void tst_ProcessDataBuilderDirectoryWriting::recordWithoutSizeEndsTheLoopWithTrue()
{
    const DescriptionDirectory directory;
    const QString path = directory.filePath("a.process.json");
    Records records{record(Description::without(laidOut("former"), "sizeOfSharedMemory"), path),
                    record(laidOut("former"), directory.filePath("b.process.json"))};
    QString key = "key";
    LogCapture log;

    QVERIFY(
        ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", directory.path(), key, 12, records));

    QCOMPARE(log.take(), refusedSize(12, "key", path));
    QVERIFY(directory.files().isEmpty());
}

void tst_ProcessDataBuilderDirectoryWriting::recordThatEndsTheLoopKeepsTheFormerFailure()
{
    const DescriptionDirectory directory;
    const QString unwritable = directory.filePath("missing/a.process.json");
    const QString path = directory.filePath("b.process.json");
    Records records{record(laidOut("former"), unwritable),
                    record(Description::without(laidOut("former"), "keyProcessDataMemory"), path),
                    record(laidOut("former"), directory.filePath("c.process.json"))};
    QString key = "key";
    LogCapture log;

    QVERIFY(
        !ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", directory.path(), key, 8, records));

    QCOMPARE(log.take(), (QList<LogLine>{openFailure(unwritable), framingFailure(unwritable)}
                          + refusedKey("key", path)));
    QVERIFY(directory.files().isEmpty());
}

void tst_ProcessDataBuilderDirectoryWriting::nextBuildRepairsWhatAFailureLeft()
{
    const DescriptionDirectory directory;
    const QString first = "a.process.json";
    const QString second = "b.process.json";
    const QJsonObject json = Description::root({{"z", Description::leaf(1, 4, 1)}});
    QVERIFY(directory.write(first, json));
    QVERIFY(directory.write(second, json));
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    const auto formerHandler = std::signal(SIGXFSZ, SIG_IGN);
    QString key;
    const auto build = [&directory, &key] {
        return ProcessDataBuilder().buildProcessDataFromDir("tessel", directory.path(), key);
    };
    bool result = true;
    LogCapture log;
    {
        const ResourceLimit noSpace(RLIMIT_FSIZE, 0);
        result = build();
    }
    std::signal(SIGXFSZ, formerHandler);

    QVERIFY(!result);
    QList<LogLine> expected;
    for (const QString &name : {first, second}) {
        const QString path = directory.filePath(name);
        expected << warning(QStringLiteral("Error on writing to file! \"%1\"").arg(path))
                 << warning(QStringLiteral("Error on commit file! \"%1\"").arg(path))
                 << warning(QStringLiteral("Can not frame new process data description to file: "
                                           "\"%1\"")
                                .arg(path));
    }
    QCOMPARE(log.take(), expected);
    QCOMPARE(directory.snapshot(), former);

    QVERIFY(build());

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(Description::keyOf(directory.json(first)), key);
    QCOMPARE(Description::offsetOf(directory.json(second), "z"), 8);
    QCOMPARE(Description::sizeOf(directory.json(second)), 16);
}

QTEST_GUILESS_MAIN(tst_ProcessDataBuilderDirectoryWriting)
#include "tst_ProcessDataBuilderDirectoryWriting.moc"
