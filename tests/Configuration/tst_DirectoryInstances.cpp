#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/InstanceTrees.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/LogCapture.h"
#include "support/WorkingDirectory.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;

/// A process file that says the region has 96 bytes and the key "K".
QByteArray processFile(const QByteArray &size = "96")
{
    return R"({"type":"treenode","doubleBuffer":true,"keyProcessDataMemory":"K",)"
           R"("sizeOfSharedMemory":)"
           + size + R"(,"value":{"l":)" + leaf("L") + "}}";
}

Base::BaseClassSharedPointer parsed(const QString &instanceName, bool isProcessDescription = false)
{
    return Access::getParsedConfigurationProcessDescription(QDir("base"), instanceName,
                                                            isProcessDescription);
}

} // namespace

/// Each test begins with an empty directory "base".
class tst_DirectoryInstances : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void directoryInstanceIsATree();
    void directoryComesBeforeTheFile();
    void fileInstanceIsItsTree();
    void processDescriptionIsTheOtherFile();
    void instanceNameMayHoldDots();
    void missingInstanceIsSilent();
    void emptyDirectoryInstanceIsSilentEvenBesideAFile();
    void processDescriptionOfADirectoryLooksForConfigurations();
    void brokenFileInstanceIsNull();
    void brokenFileInADirectoryInstanceIsNoFailure();
    void emptyInstanceNameIsRefused();
    void missingBaseDirectoryIsReported();
    void readingAnInstanceChangesNothingOnTheDisk();

    void configurationIsTheCompactText();
    void configurationOfADirectoryIsTheWholeTree();
    void configurationKeepsCharactersOfAnyKind();
    void configurationLeavesNullChildrenOut();
    void missingConfigurationIsReported();
    void processDescriptionIsNoConfiguration();
    void brokenConfigurationIsReported();
    void configurationWithoutNameIsReportedTwice();
    void configurationInAMissingDirectoryIsReportedTwice();

    void configurationMayBeNamedByAPath_data();
    void configurationMayBeNamedByAPath();
    void pathIsTakenWithoutExtension();
    void pathWithoutDirectoryOrNameGivesNothing_data();
    void pathWithoutDirectoryOrNameGivesNothing();
    void pathToNothingIsReported();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_DirectoryInstances::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("base");
}

void tst_DirectoryInstances::cleanup()
{
    m_directory.reset();
}

void tst_DirectoryInstances::directoryInstanceIsATree()
{
    writeFile("base/i/folder.json", "{}");
    writeFile("base/i/a.config.json", leaf("A"));
    LogCapture log;

    const auto root = parsed("i");

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(!root.isNull());
    QCOMPARE(valueAt(root, "a"), QString("A"));
}

void tst_DirectoryInstances::directoryComesBeforeTheFile()
{
    writeFile("base/i/folder.json", "{}");
    writeFile("base/i/a.config.json", leaf("in the directory"));
    writeFile("base/i.config.json", leaf("in the file"));
    writeFile("base/i.process.json", leaf("in the other file"));
    LogCapture log;

    for (const bool isProcessDescription : {false, true}) {
        const auto root = parsed("i", isProcessDescription);

        QVERIFY(!root.isNull());
        QCOMPARE(valueAt(root, "a"), QString("in the directory"));
    }
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryInstances::fileInstanceIsItsTree()
{
    writeFile("base/i.config.json", leaf("configured"));
    writeFile("base/i.process.json", leaf("processed"));
    LogCapture log;

    const auto root = parsed("i");

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(!root.dynamicCast<ConfigurationDataValue>().isNull());
    QCOMPARE(root->getProperty("value"), QVariant("configured"));
}

void tst_DirectoryInstances::processDescriptionIsTheOtherFile()
{
    writeFile("base/i.config.json", leaf("configured"));
    writeFile("base/i.process.json", leaf("processed"));
    LogCapture log;

    const auto root = parsed("i", true);

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(!root.dynamicCast<ProcessDataValue>().isNull());
    QCOMPARE(root->getProperty("value"), QVariant("processed"));
}

void tst_DirectoryInstances::instanceNameMayHoldDots()
{
    writeFile("base/i.v1.config.json", leaf("one"));
    writeFile("base/i.v2/folder.json", "{}");
    writeFile("base/i.v2/a.config.json", leaf("two"));
    LogCapture log;

    QCOMPARE(parsed("i.v1")->getProperty("value"), QVariant("one"));
    QCOMPARE(valueAt(parsed("i.v2"), "a"), QString("two"));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryInstances::missingInstanceIsSilent()
{
    writeFile("base/configured.config.json", leaf("C"));
    writeFile("base/processed.process.json", leaf("P"));
    LogCapture log;

    QVERIFY(parsed("missing").isNull());
    QVERIFY(parsed("missing", true).isNull());
    QVERIFY(parsed("processed").isNull());
    QVERIFY(parsed("configured", true).isNull());

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryInstances::emptyDirectoryInstanceIsSilentEvenBesideAFile()
{
    makeDirectory("base/i");
    writeFile("base/i.config.json", leaf("I"));
    LogCapture log;

    QVERIFY(parsed("i").isNull());

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryInstances::processDescriptionOfADirectoryLooksForConfigurations()
{
    writeFile("base/flat/a.process.json", processFile());
    writeFile("base/deep/a.process.json", processFile());
    writeFile("base/deep/sub/b.process.json", processFile());
    writeFile("base/deep/folder.json", "{}");
    LogCapture log;

    QVERIFY(parsed("flat", true).isNull());
    const auto deep = parsed("deep", true);

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(!deep.isNull());
    QCOMPARE(deep->getNumberOfChilds(), 0);
    QVERIFY(!deep->hasProperty("sizeOfSharedMemory"));
}

void tst_DirectoryInstances::brokenFileInstanceIsNull()
{
    writeFile("base/i.config.json", "{}");
    LogCapture log;

    QVERIFY(parsed("i").isNull());

    COMPARE_LOG(log, warning("key 'type' not found in JSON object"));
}

void tst_DirectoryInstances::brokenFileInADirectoryInstanceIsNoFailure()
{
    writeFile("base/i/folder.json", "{}");
    writeFile("base/i/a.config.json", "{}");
    LogCapture log;

    const auto root = parsed("i");

    COMPARE_LOG(log, warning("key 'type' not found in JSON object"));
    QVERIFY(!root.isNull());
    QCOMPARE(root->getNumberOfChilds(), 1);
    QVERIFY(root->getLeaf("a").isNull());
}

void tst_DirectoryInstances::emptyInstanceNameIsRefused()
{
    writeFile("base/.config.json", leaf("without name"));
    LogCapture log;

    QVERIFY(parsed("").isNull());
    // The name comes before the directory.
    QVERIFY(Access::getParsedConfigurationProcessDescription(QDir("missing"), {}, true).isNull());

    COMPARE_LOG(log, warning("Instance name is empty!"), warning("Instance name is empty!"));
}

void tst_DirectoryInstances::missingBaseDirectoryIsReported()
{
    writeFile("file", "");
    LogCapture log;

    QVERIFY(
        Access::getParsedConfigurationProcessDescription(QDir("missing/dir"), "i", false).isNull());
    QVERIFY(Access::getParsedConfigurationProcessDescription(QDir("file"), "i", true).isNull());

    COMPARE_LOG(log, warning("Configuration folder does not exist: \"missing/dir\""),
                warning("Configuration folder does not exist: \"file\""));
}

void tst_DirectoryInstances::readingAnInstanceChangesNothingOnTheDisk()
{
    writeFile("base/i/a.config.json", leaf("A"));
    writeFile("base/p/a.process.json", processFile());
    writeFile("base/j.config.json", leaf("J"));
    const auto states = statesBelow(".");
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(!Access::getConfiguration(QDir("base"), "i").isEmpty());
    QVERIFY(!Access::getConfiguration(QDir("base"), "j").isEmpty());
    QVERIFY(Access::parseProcessDir(root, QFileInfo("base/p")));

    QVERIFY(statesBelow(".") == states);
}

void tst_DirectoryInstances::configurationIsTheCompactText()
{
    writeFile("base/i.config.json",
              "{ \"value\" : {\n \"b\" : {\"value\":5, \"type\":\"int32\"} },\n"
              " \"type\":\"treenode\", \"any\":[1, 2] }");
    LogCapture log;

    QCOMPARE(
        Access::getConfiguration(QDir("base"), "i"),
        QString(R"({"any":[1,2],"type":"treenode","value":{"b":{"type":"int32","value":5}}})"));

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryInstances::configurationOfADirectoryIsTheWholeTree()
{
    writeFile("base/i/folder.json", R"({"labelTextId":"top"})");
    writeFile("base/i/d.1/folder.json", R"({"cpveVersion":"2"})");
    writeFile("base/i/d.1/a.x.config.json", leaf("A"));
    writeFile("base/i/b.config.json", leaf("B"));
    LogCapture log;

    QCOMPARE(Access::getConfiguration(QDir("base"), "i"),
             QString(R"({"configurationVersion":"","cpveVersion":"","labelTextId":"top",)"
                     R"("type":"treenode","value":{"b":{"type":"string","value":"B"},)"
                     R"("d.1":{"configurationVersion":"","cpveVersion":"2","labelTextId":"",)"
                     R"("type":"treenode","value":{"a":{"type":"string","value":"A"}}}}})"));

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryInstances::configurationKeepsCharactersOfAnyKind()
{
    writeFile("base/i.config.json", leaf("\xC3\xA4 \xE2\x82\xAC \\u0000 end"));
    LogCapture log;

    QCOMPARE(
        Access::getConfiguration(QDir("base"), "i"),
        QString::fromUtf8("{\"type\":\"string\",\"value\":\"\xC3\xA4 \xE2\x82\xAC \\u0000 end\"}"));
}

void tst_DirectoryInstances::configurationLeavesNullChildrenOut()
{
    writeFile("base/i/folder.json", "{}");
    writeFile("base/i/a.config.json", "{}");
    writeFile("base/i/b.config.json", leaf("B"));
    LogCapture log;

    const QString text = Access::getConfiguration(QDir("base"), "i");

    COMPARE_LOG(log, warning("key 'type' not found in JSON object"), warning("Key has no value!"));
    QVERIFY(text.endsWith(R"("value":{"b":{"type":"string","value":"B"}}})"));
}

void tst_DirectoryInstances::missingConfigurationIsReported()
{
    LogCapture log;

    QVERIFY(Access::getConfiguration(QDir("base"), "i").isEmpty());

    COMPARE_LOG(log, warning("Unable to parse configuration \"i\""));
}

void tst_DirectoryInstances::processDescriptionIsNoConfiguration()
{
    writeFile("base/i.process.json", leaf("processed"));
    LogCapture log;

    QVERIFY(Access::getConfiguration(QDir("base"), "i").isEmpty());

    COMPARE_LOG(log, warning("Unable to parse configuration \"i\""));
}

void tst_DirectoryInstances::brokenConfigurationIsReported()
{
    writeFile("base/i.config.json", "{}");
    LogCapture log;

    QVERIFY(Access::getConfiguration(QDir("base"), "i").isEmpty());

    COMPARE_LOG(log, warning("key 'type' not found in JSON object"),
                warning("Unable to parse configuration \"i\""));
}

void tst_DirectoryInstances::configurationWithoutNameIsReportedTwice()
{
    LogCapture log;

    QVERIFY(Access::getConfiguration(QDir("base"), "").isEmpty());

    COMPARE_LOG(log, warning("Instance name is empty!"),
                warning("Unable to parse configuration \"\""));
}

void tst_DirectoryInstances::configurationInAMissingDirectoryIsReportedTwice()
{
    LogCapture log;

    QVERIFY(Access::getConfiguration(QDir("missing"), "i").isEmpty());

    COMPARE_LOG(log, warning("Configuration folder does not exist: \"missing\""),
                warning("Unable to parse configuration \"i\""));
}

void tst_DirectoryInstances::configurationMayBeNamedByAPath_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("value");

    QTest::newRow("nothing of that name") << "base/file"
                                          << "F";
    QTest::newRow("name with dots") << "base/file.v1"
                                    << "V";
    QTest::newRow("directory") << "base/directory"
                               << "D";
    QTest::newRow("in the current directory") << "here"
                                              << "H";
}

void tst_DirectoryInstances::configurationMayBeNamedByAPath()
{
    QFETCH(QString, path);
    QFETCH(QString, value);
    writeFile("base/file.config.json", leaf("F"));
    writeFile("base/file.v1.config.json", leaf("V"));
    writeFile("base/directory/folder.json", "{}");
    writeFile("base/directory/a.config.json", leaf("D"));
    writeFile("here.config.json", leaf("H"));
    LogCapture log;

    const QString text = Access::getConfiguration(QFileInfo(path));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(text.contains(R"({"type":"string","value":")" + value + R"("})"));
}

void tst_DirectoryInstances::pathIsTakenWithoutExtension()
{
    writeFile("base/file.config.json", leaf("F"));
    LogCapture log;

    QVERIFY(Access::getConfiguration(QFileInfo("base/file.config.json")).isEmpty());

    COMPARE_LOG(log, warning("Unable to parse configuration \"file.config.json\""));
}

void tst_DirectoryInstances::pathWithoutDirectoryOrNameGivesNothing_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("missing directory") << "missing/file";
    QTest::newRow("no name") << "base/";
    QTest::newRow("empty path") << "";
}

void tst_DirectoryInstances::pathWithoutDirectoryOrNameGivesNothing()
{
    QFETCH(QString, path);
    writeFile("base/file.config.json", leaf("F"));
    LogCapture log;

    QVERIFY(Access::getConfiguration(QFileInfo(path)).isEmpty());

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryInstances::pathToNothingIsReported()
{
    LogCapture log;

    QVERIFY(Access::getConfiguration(QFileInfo("base/file")).isEmpty());

    COMPARE_LOG(log, warning("Unable to parse configuration \"file\""));
}

QTEST_GUILESS_MAIN(tst_DirectoryInstances)

#include "tst_DirectoryInstances.moc"
