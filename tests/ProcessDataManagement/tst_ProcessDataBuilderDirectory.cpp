#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "support/LogCapture.h"

#include <QRegularExpression>

namespace {

const QString first = QStringLiteral("a.process.json");
const QString second = QStringLiteral("b.process.json");

/// Leaves of 6 + 3 and 4 + 1 bytes.
QJsonObject firstFile(const QString &key = {})
{
    return Description::root({{"x", Description::leaf(1, 6, 3)}, {"y", Description::leaf(2, 4, 1)}},
                             key);
}

/// One leaf of 4 + 1 bytes.
QJsonObject secondFile(const QString &key = {})
{
    return Description::root({{"z", Description::leaf(1, 4, 1)}}, key);
}

bool build(const DescriptionDirectory &directory, QString &key)
{
    return ProcessDataBuilder().buildProcessDataFromDir("tessel", directory.path(), key);
}

} // namespace

class tst_ProcessDataBuilderDirectory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void leavesOfAllFilesLieInOneRegion();
    void onlyOffsetSizeAndKeyChange();
    void secondBuildWritesNothing();
    void secondBuildWithoutTheKeyFindsIt();
    void numbersWithADecimalPointCountAsEqual();
    void onlyChangedFilesAreWritten();
    void grownFileMovesThoseBehindIt();
    void imposedKeyReplacesTheStoredOne();
    void foreignKeyOfTheFirstFileIsReplaced();
    void renamedDirectoryGetsANewKey();
    void onlyProcessDescriptionsCount();
    void subdirectoriesTakePartInOrder();
    void fileWithoutLeavesGetsSizeAndKey();

    void emptyDirectoryIsFalse_data();
    void emptyDirectoryIsFalse();
    void directoryOfDotsAloneIsRefused();
    void directoryOfDotsTakesAnImposedKey();
    void firstFileThatDoesNotParseEndsTheBuild();
    void laterFileThatDoesNotParseIsLeftBehind();
    void leafWithoutOffsetWritesNothing();
    void fileWithoutKeyEndsTheBuildWithTrue();
};

void tst_ProcessDataBuilderDirectory::leavesOfAllFilesLieInOneRegion()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    QVERIFY(directory.write(second, secondFile()));
    QString key;
    LogCapture log;

    QVERIFY(build(directory, key));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(QRegularExpression("^tesselFolderdevice[0-9a-f]{5}$").match(key).hasMatch());
    const QJsonObject a = directory.json(first);
    const QJsonObject b = directory.json(second);
    QCOMPARE(Description::offsetOf(a, "x"), 0);
    QCOMPARE(Description::offsetOf(a, "y"), 9);
    QCOMPARE(Description::offsetOf(b, "z"), 16);
    QCOMPARE(Description::sizeOf(a), 24);
    QCOMPARE(Description::sizeOf(b), 24);
    QCOMPARE(Description::keyOf(a), key);
    QCOMPARE(Description::keyOf(b), key);
    QCOMPARE(directory.files(), (QStringList{first, second}));
}

void tst_ProcessDataBuilderDirectory::onlyOffsetSizeAndKeyChange()
{
    const DescriptionDirectory directory;
    QJsonObject json = firstFile();
    json.insert("labelTextId", QString::fromUtf8("\xC2\xB0"
                                                 "C"));
    json.insert("extra", QJsonObject{{"nested", 1.5}});
    QVERIFY(directory.write(first, json));
    QString key = "imposed";

    QVERIFY(build(directory, key));

    json.insert("value", QJsonObject{{"x", Description::leaf(1, 6, 3, 0)},
                                     {"y", Description::leaf(2, 4, 1, 9)}});
    json.insert("sizeOfSharedMemory", 16);
    json.insert("keyProcessDataMemory", "imposed");
    QCOMPARE(directory.json(first), json);
}

void tst_ProcessDataBuilderDirectory::secondBuildWritesNothing()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    QVERIFY(directory.write(second, secondFile()));
    QString key;
    QVERIFY(build(directory, key));
    const QString formerKey = key;
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    LogCapture log;

    QVERIFY(build(directory, key));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(key, formerKey);
    QCOMPARE(directory.snapshot(), former);
}

void tst_ProcessDataBuilderDirectory::secondBuildWithoutTheKeyFindsIt()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    QVERIFY(directory.write(second, secondFile()));
    QString key;
    QVERIFY(build(directory, key));
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    QString found;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().buildProcessDataFromDir("tessel", directory.path() + "//", found));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(found, key);
    QCOMPARE(directory.snapshot(), former);
}

void tst_ProcessDataBuilderDirectory::numbersWithADecimalPointCountAsEqual()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(
        first,
        QByteArray(R"({"type":"treenode","keyProcessDataMemory":"key","sizeOfSharedMemory":16.0,
            "value":{"x":{"type":"uint32","displayPosition":1,"offsetSharedMemory":0.0,
                          "sizeValue":6.0,"sizeMetadata":3e0},
                     "y":{"type":"uint32","displayPosition":2,"offsetSharedMemory":9.0,
                          "sizeValue":4.0,"sizeMetadata":1.0}}})")));
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    QString key = "key";
    LogCapture log;

    QVERIFY(build(directory, key));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(directory.snapshot(), former);
}

void tst_ProcessDataBuilderDirectory::onlyChangedFilesAreWritten()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    QVERIFY(directory.write(second, secondFile()));
    QString key = "key";
    QVERIFY(build(directory, key));
    const QByteArray right = directory.read(second);
    QJsonObject wrong = directory.json(second);
    wrong.insert("value", QJsonObject{{"z", Description::leaf(1, 4, 1, 12)}});
    QVERIFY(directory.write(second, wrong));
    const DescriptionDirectory::Snapshot former = directory.snapshot();

    QVERIFY(build(directory, key));

    QCOMPARE(directory.snapshot().value(first), former.value(first));
    QCOMPARE(directory.read(second), right);
}

void tst_ProcessDataBuilderDirectory::grownFileMovesThoseBehindIt()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    QVERIFY(directory.write(second, secondFile()));
    QString key;
    QVERIFY(build(directory, key));
    const QString formerKey = key;
    QJsonObject grown = directory.json(first);
    QJsonObject leaves = grown.value("value").toObject();
    leaves.insert("w", Description::leaf(0, 8, 4));
    grown.insert("value", leaves);
    QVERIFY(directory.write(first, grown));

    QVERIFY(build(directory, key = QString()));

    QCOMPARE(key, formerKey);
    const QJsonObject a = directory.json(first);
    const QJsonObject b = directory.json(second);
    QCOMPARE(Description::offsetOf(a, "w"), 0);
    QCOMPARE(Description::offsetOf(a, "x"), 12);
    QCOMPARE(Description::offsetOf(a, "y"), 21);
    QCOMPARE(Description::offsetOf(b, "z"), 28);
    QCOMPARE(Description::sizeOf(a), 36);
    QCOMPARE(Description::sizeOf(b), 36);
}

void tst_ProcessDataBuilderDirectory::imposedKeyReplacesTheStoredOne()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    QVERIFY(directory.write(second, secondFile()));
    QString formerKey;
    QVERIFY(build(directory, formerKey));
    QString key = "imposed";
    LogCapture log;

    QVERIFY(build(directory, key));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(key, QString("imposed"));
    QCOMPARE(Description::keyOf(directory.json(first)), key);
    QCOMPARE(Description::keyOf(directory.json(second)), key);
}

void tst_ProcessDataBuilderDirectory::foreignKeyOfTheFirstFileIsReplaced()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile("by hand")));
    QVERIFY(directory.write(second, secondFile("tesselFolderdevice, by hand")));
    QString key;

    QVERIFY(build(directory, key));

    QVERIFY(QRegularExpression("^tesselFolderdevice[0-9a-f]{5}$").match(key).hasMatch());
    QCOMPARE(Description::keyOf(directory.json(first)), key);
    QCOMPARE(Description::keyOf(directory.json(second)), key);
}

void tst_ProcessDataBuilderDirectory::renamedDirectoryGetsANewKey()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    QString formerKey;
    QVERIFY(build(directory, formerKey));
    const DescriptionDirectory renamed("other");
    QVERIFY(renamed.copy(directory.path()));
    QString key;

    QVERIFY(build(renamed, key));

    QVERIFY(key.startsWith("tesselFolderother"));
    QCOMPARE(Description::keyOf(renamed.json(first)), key);
    QCOMPARE(Description::keyOf(directory.json(first)), formerKey);
}

void tst_ProcessDataBuilderDirectory::onlyProcessDescriptionsCount()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    QVERIFY(directory.write("a.config.json", secondFile()));
    QVERIFY(directory.write("folder.json", QByteArray("{}")));
    QVERIFY(directory.write("b.process.json.bak", secondFile()));
    QVERIFY(directory.write(".hidden.process.json", secondFile()));
    QVERIFY(directory.write("b.PROCESS.JSON", secondFile()));
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    QString key;
    LogCapture log;

    QVERIFY(build(directory, key));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(Description::sizeOf(directory.json(first)), 16);
    DescriptionDirectory::Snapshot expected = directory.snapshot();
    expected.insert(first, former.value(first));
    QCOMPARE(expected, former);
}

void tst_ProcessDataBuilderDirectory::subdirectoriesTakePartInOrder()
{
    const DescriptionDirectory directory;
    for (const QString name :
         {"a.process.json", "m/z.process.json", "m/k/b.process.json", "z.process.json"}) {
        QVERIFY(directory.write(name, secondFile()));
    }
    QString key;

    QVERIFY(build(directory, key));

    const auto offset = [&](const QString &name) {
        return Description::offsetOf(directory.json(name), "z");
    };
    QCOMPARE(offset("a.process.json"), 0);
    QCOMPARE(offset("m/k/b.process.json"), 8);
    QCOMPARE(offset("m/z.process.json"), 16);
    QCOMPARE(offset("z.process.json"), 24);
    QCOMPARE(Description::sizeOf(directory.json("m/z.process.json")), 32);
}

void tst_ProcessDataBuilderDirectory::fileWithoutLeavesGetsSizeAndKey()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, Description::root({})));
    QVERIFY(directory.write(second, secondFile()));
    QString key = "key";

    QVERIFY(build(directory, key));

    QCOMPARE(Description::offsetOf(directory.json(second), "z"), 0);
    QCOMPARE(Description::sizeOf(directory.json(first)), 8);
    QCOMPARE(Description::keyOf(directory.json(first)), key);
}

void tst_ProcessDataBuilderDirectory::emptyDirectoryIsFalse_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("key");

    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("other files") << "a.config.json"
                                 << "";
    QTest::newRow("empty, imposed key") << ""
                                        << "imposed";
}

void tst_ProcessDataBuilderDirectory::emptyDirectoryIsFalse()
{
    QFETCH(QString, file);
    QFETCH(QString, key);
    const DescriptionDirectory directory;
    QVERIFY(file.isEmpty() || directory.write(file, firstFile()));
    const QString formerKey = key;
    LogCapture log;

    QVERIFY(!build(directory, key));
    QVERIFY(!ProcessDataBuilder().buildProcessDataFromDir("tessel", directory.filePath("missing"),
                                                          key));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(key, formerKey);
}

void tst_ProcessDataBuilderDirectory::directoryOfDotsAloneIsRefused()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    const QString formerDirectory = QDir::currentPath();
    QVERIFY(QDir::setCurrent(directory.path()));
    const QString file = QFileInfo(first).absoluteFilePath();
    QString key;
    LogCapture log;

    const bool result = ProcessDataBuilder().buildProcessDataFromDir("tessel", "./", key);
    QVERIFY(QDir::setCurrent(formerDirectory));

    QVERIFY(!result);
    COMPARE_LOG(log,
                warning("Path names no directory from which a memory key could be made: \"./\""),
                warning("Can't create sharedMemory key \"\" \"" + file + '"'));
    QVERIFY(key.isEmpty());
    QCOMPARE(directory.snapshot(), former);
}

void tst_ProcessDataBuilderDirectory::directoryOfDotsTakesAnImposedKey()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    const QString formerDirectory = QDir::currentPath();
    QVERIFY(QDir::setCurrent(directory.path()));
    QString key = "imposed";
    LogCapture log;

    const bool result = ProcessDataBuilder().buildProcessDataFromDir("tessel", ".", key);
    QVERIFY(QDir::setCurrent(formerDirectory));

    QVERIFY(result);
    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(Description::keyOf(directory.json(first)), key);
}

void tst_ProcessDataBuilderDirectory::firstFileThatDoesNotParseEndsTheBuild()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, QByteArray("{}")));
    QVERIFY(directory.write(second, secondFile()));
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    QString key;
    LogCapture log;

    QVERIFY(!build(directory, key));

    COMPARE_LOG(log, warning("key 'type' not found in JSON object"),
                warning(QStringLiteral("Can't parse sharedMemory file: \"%1\"")
                            .arg(directory.filePath(first))));
    QVERIFY(key.isEmpty());
    QCOMPARE(directory.snapshot(), former);
}

void tst_ProcessDataBuilderDirectory::laterFileThatDoesNotParseIsLeftBehind()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    QVERIFY(directory.write(second, QByteArray("{}")));
    QVERIFY(directory.write("c.process.json", secondFile()));
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    QString key;
    LogCapture log;

    QVERIFY(build(directory, key));

    COMPARE_LOG(log, warning("key 'type' not found in JSON object"),
                warning(QStringLiteral("Can't parse sharedMemory file: \"%1\"")
                            .arg(directory.filePath(second))));
    QCOMPARE(Description::sizeOf(directory.json(first)), 16);
    QCOMPARE(Description::keyOf(directory.json(first)), key);
    QCOMPARE(directory.snapshot().value(second), former.value(second));
    QCOMPARE(directory.snapshot().value("c.process.json"), former.value("c.process.json"));
}

void tst_ProcessDataBuilderDirectory::leafWithoutOffsetWritesNothing()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, firstFile()));
    QVERIFY(directory.write(
        second, Description::root({{"z", Description::without(Description::leaf(1, 4, 1),
                                                              "offsetSharedMemory")}})));
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    QString key;
    LogCapture log;

    QVERIFY(!build(directory, key));

    COMPARE_LOG(log, warning("Key not found \"offsetSharedMemory\""),
                warning("Key can't set. Property name: \"offsetSharedMemory\" Value: "
                        "QVariant(int, 16) State: 4"),
                warning("OffsetSharedMemory can't set"),
                warning(QStringLiteral("Can't set sharedMemoryOffset: \"%1\"")
                            .arg(directory.filePath(second))));
    QVERIFY(key.isEmpty());
    QCOMPARE(directory.snapshot(), former);
}

void tst_ProcessDataBuilderDirectory::fileWithoutKeyEndsTheBuildWithTrue()
{
    const DescriptionDirectory directory;
    QVERIFY(directory.write(first, Description::without(firstFile(), "keyProcessDataMemory")));
    QVERIFY(directory.write(second, secondFile()));
    const DescriptionDirectory::Snapshot former = directory.snapshot();
    QString key;
    LogCapture log;

    QVERIFY(build(directory, key));

    COMPARE_LOG(log, warning("Key not found \"keyProcessDataMemory\""),
                warning(QStringLiteral("Key can't set. Property name: \"keyProcessDataMemory\" "
                                       "Value: QVariant(QString, \"%1\") State: 4")
                            .arg(key)),
                warning(QStringLiteral("Can't set sharedMemoryKey: \"%1\" \"%2\"")
                            .arg(key, directory.filePath(first))));
    QVERIFY(key.startsWith("tesselFolderdevice"));
    QCOMPARE(directory.snapshot(), former);
}

QTEST_GUILESS_MAIN(tst_ProcessDataBuilderDirectory)
#include "tst_ProcessDataBuilderDirectory.moc"
