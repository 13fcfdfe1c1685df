#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "support/LogCapture.h"

#include <QRegularExpression>
#include <QSet>

namespace {

using Records = QVector<ProcessDataBuilder::SharedMemoryData>;

ProcessDataBuilder::SharedMemoryData record(const QJsonObject &json, const QString &path = {})
{
    ProcessDataBuilder::SharedMemoryData data;
    data.root = data.parser.createNode(json, QStringLiteral("process.json"));
    data.filePath = path;
    return data;
}

/// Records of two files, the first of which holds the key.
Records recordsWithKey(const QString &key)
{
    return {record(Description::root({}, key), "/first"),
            record(Description::root({}, "tesselFolderdevice, second"), "/second")};
}

bool isCandidateWithTail(const QString &key, const QString &candidate)
{
    return key.left(key.size() - 5) == candidate
           && QRegularExpression("^[0-9a-f]{5}$").match(key.right(5)).hasMatch();
}

QString pathWarning(const QString &path)
{
    return QStringLiteral("Path names no directory from which a memory key could be made: \"%1\"")
        .arg(path);
}

} // namespace

/// The second phase of a build: the key of the region.
class tst_ProcessDataBuilderDirectoryKeys : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lastNameOfThePathCounts_data();
    void lastNameOfThePathCounts();
    void pathWithoutAnyNameIsRefused_data();
    void pathWithoutAnyNameIsRefused();
    void tailIsRandom();
    void storedKeyWithTheCandidateStays_data();
    void storedKeyWithTheCandidateStays();
    void storedKeyWithoutTheCandidateGoes_data();
    void storedKeyWithoutTheCandidateGoes();
    void fileWithoutKeyGetsANewOne();
    void noRecordsIsFalse();

    void missingKeyIsReportedWithAnEmptyPath();
    void refusedPathIsReportedWithTheFirstFile();
    void imposedKeyNeedsNeitherPathNorRecords();
};

void tst_ProcessDataBuilderDirectoryKeys::lastNameOfThePathCounts_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("name");

    QTest::newRow("absolute") << "/opt/device"
                              << "device";
    QTest::newRow("relative") << "instances/device"
                              << "device";
    QTest::newRow("name alone") << "device"
                                << "device";
    QTest::newRow("one slash behind") << "/opt/device/"
                                      << "device";
    QTest::newRow("slashes behind") << "/opt/device///"
                                    << "device";
    QTest::newRow("dot behind") << "/opt/device/."
                                << "device";
    // Not resolved: what counts is the text.
    QTest::newRow("dots behind") << "/opt/device/.."
                                 << "device";
    QTest::newRow("dots in front") << "../../device"
                                   << "device";
    QTest::newRow("no word character behind") << "/opt/device/-+-/"
                                              << "device";
    QTest::newRow("only one word character") << "/opt/--a--"
                                             << "--a--";
    QTest::newRow("underscore") << "/opt/_"
                                << "_";
    QTest::newRow("digit") << "/opt/7"
                           << "7";
    QTest::newRow("letter beyond ASCII")
        << QString::fromUtf8("/opt/\xC3\xA4") << QString::fromUtf8("\xC3\xA4");
    QTest::newRow("blanks and dots inside") << "/opt/my device.d/"
                                            << "my device.d";
}

void tst_ProcessDataBuilderDirectoryKeys::lastNameOfThePathCounts()
{
    QFETCH(QString, path);
    QFETCH(QString, name);
    QString key;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().getSharedMemoryKeyForDir("tessel", path, recordsWithKey({}), key));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY2(isCandidateWithTail(key, "tesselFolder" + name), qPrintable(key));

    QVERIFY(ProcessDataBuilder().getSharedMemoryKeyForDir({}, path, recordsWithKey({}),
                                                          key = QString()));
    QVERIFY2(isCandidateWithTail(key, "Folder" + name), qPrintable(key));
}

void tst_ProcessDataBuilderDirectoryKeys::pathWithoutAnyNameIsRefused_data()
{
    QTest::addColumn<QString>("path");

    for (const QString path : {"", "/", ".", "..", "../..", "./", "//", "/-/ /"}) {
        QTest::newRow(qPrintable('"' + path + '"')) << path;
    }
}

void tst_ProcessDataBuilderDirectoryKeys::pathWithoutAnyNameIsRefused()
{
    QFETCH(QString, path);
    QString key;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().getSharedMemoryKeyForDir(
        "tessel", path, recordsWithKey("tesselFolderdevice12345"), key));

    COMPARE_LOG(log, warning(pathWarning(path)));
    QVERIFY(key.isEmpty());
}

void tst_ProcessDataBuilderDirectoryKeys::tailIsRandom()
{
    QSet<QString> keys;
    for (int count = 0; count < 8; ++count) {
        QString key;
        QVERIFY(ProcessDataBuilder().getSharedMemoryKeyForDir("tessel", "/opt/device",
                                                              recordsWithKey({}), key));
        keys.insert(key);
    }

    QVERIFY(keys.size() > 1);
}

void tst_ProcessDataBuilderDirectoryKeys::storedKeyWithTheCandidateStays_data()
{
    QTest::addColumn<QString>("stored");

    QTest::newRow("with a tail") << "tesselFolderdevice12345";
    QTest::newRow("alone") << "tesselFolderdevice";
    QTest::newRow("inside") << "my tesselFolderdevice, by hand";
    QTest::newRow("of a longer name") << "tesselFolderdevice2abcde";
}

void tst_ProcessDataBuilderDirectoryKeys::storedKeyWithTheCandidateStays()
{
    QFETCH(QString, stored);
    QString key;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().getSharedMemoryKeyForDir("tessel", "/opt/device/",
                                                          recordsWithKey(stored), key));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(key, stored);
}

void tst_ProcessDataBuilderDirectoryKeys::storedKeyWithoutTheCandidateGoes_data()
{
    QTest::addColumn<QString>("stored");

    QTest::newRow("nothing") << "";
    QTest::newRow("another directory") << "tesselFolderdevil12345";
    QTest::newRow("another prefix") << "tesseFolderdevice12345";
    QTest::newRow("another case") << "tesselfolderdevice12345";
    QTest::newRow("cut short") << "tesselFolderdevic";
}

void tst_ProcessDataBuilderDirectoryKeys::storedKeyWithoutTheCandidateGoes()
{
    QFETCH(QString, stored);
    QString key;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().getSharedMemoryKeyForDir("tessel", "/opt/device",
                                                          recordsWithKey(stored), key));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY2(isCandidateWithTail(key, "tesselFolderdevice"), qPrintable(key));
    // The second file has a key that would do, but only the first one is asked.
    QVERIFY(key != "tesselFolderdevice, second");
}

void tst_ProcessDataBuilderDirectoryKeys::fileWithoutKeyGetsANewOne()
{
    const Records records{
        record(Description::without(Description::root({}), "keyProcessDataMemory"))};
    QString key;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().getSharedMemoryKeyForDir("tessel", "/opt/device", records, key));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY2(isCandidateWithTail(key, "tesselFolderdevice"), qPrintable(key));
    QVERIFY(!records.first().root->hasProperty("keyProcessDataMemory"));
}

void tst_ProcessDataBuilderDirectoryKeys::noRecordsIsFalse()
{
    QString key;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().getSharedMemoryKeyForDir("tessel", "/opt/device", {}, key));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(key.isEmpty());
}

void tst_ProcessDataBuilderDirectoryKeys::missingKeyIsReportedWithAnEmptyPath()
{
    Records records;
    QString key;
    LogCapture log;

    QVERIFY(
        !ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", "/opt/device", key, 8, records));

    COMPARE_LOG(log, warning("Can't create sharedMemory key \"\" \"\""));
    QVERIFY(key.isEmpty());
}

void tst_ProcessDataBuilderDirectoryKeys::refusedPathIsReportedWithTheFirstFile()
{
    Records records = recordsWithKey("tesselFolderdevice12345");
    QString key;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", "..", key, 8, records));

    COMPARE_LOG(log, warning(pathWarning("..")),
                warning("Can't create sharedMemory key \"\" \"/first\""));
    QVERIFY(key.isEmpty());
    QCOMPARE(records.first().root->getProperty("sizeOfSharedMemory").toInt(), -1);
    QVERIFY(!records.first().modified);
}

void tst_ProcessDataBuilderDirectoryKeys::imposedKeyNeedsNeitherPathNorRecords()
{
    Records records;
    QString key = "imposed";
    LogCapture log;

    QVERIFY(ProcessDataBuilder().updateSizeAndKeyFromDir("tessel", "..", key, 8, records));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(key, QString("imposed"));
}

QTEST_GUILESS_MAIN(tst_ProcessDataBuilderDirectoryKeys)
#include "tst_ProcessDataBuilderDirectoryKeys.moc"
