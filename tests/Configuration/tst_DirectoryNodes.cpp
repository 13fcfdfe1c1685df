#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/InstanceTrees.h"
#include "support/LogCapture.h"
#include "support/WorkingDirectory.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;

Base::BaseClassSharedPointer parsedTop()
{
    Base::BaseClassSharedPointer root;
    return Access::parseConfigDir(root, QFileInfo("top")) ? root : Base::BaseClassSharedPointer();
}

} // namespace

/// Each test parses a directory "top" that is made anew.
class tst_DirectoryNodes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void directoryNodeHasTheTextsOfItsDescription();
    void directoryNodeHasTextsOfAnyMember();
    void directoryNodeWithoutDescriptionHasEmptyTexts();
    void eachDirectoryHasItsOwnDescription();
    void brokenFolderDescriptionIsReportedThreeTimes();

    void emptyTopGivesNoRoot_data();
    void emptyTopGivesNoRoot();
    void emptySubDirectoryMakesANodeOfItsParentOnly();
    void subDirectoryWithOtherFilesIsLeftOut();
    void subDirectoryWithSubDirectoriesIsKept();
    void otherFilesAreNothing();
    void hiddenEntriesAreNothing();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_DirectoryNodes::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("top");
}

void tst_DirectoryNodes::cleanup()
{
    m_directory.reset();
}

void tst_DirectoryNodes::directoryNodeHasTheTextsOfItsDescription()
{
    writeFile("top/folder.json",
              R"({"labelTextId":"label","cpveVersion":"1.2","configurationVersion":"3",)"
              R"("type":"string","displayPosition":4,"value":{"x":1}})");
    writeFile("top/a.config.json", leaf("A"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getProperties(), (Base::PropertyMap{{"labelTextId", "label"},
                                                       {"type", "treenode"},
                                                       {"cpveVersion", "1.2"},
                                                       {"configurationVersion", "3"}}));
}

void tst_DirectoryNodes::directoryNodeHasTextsOfAnyMember()
{
    writeFile("top/folder.json",
              R"({"labelTextId":true,"cpveVersion":1.5,"configurationVersion":{"a":1}})");
    writeFile("top/a.config.json", leaf("A"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), QList<LogLine>());
    const auto properties = root->getProperties();
    QCOMPARE(properties.value("labelTextId"), QVariant(QString("true")));
    QCOMPARE(properties.value("cpveVersion"), QVariant(QString("1.5")));
    QCOMPARE(properties.value("configurationVersion"), QVariant(QString()));
    for (const QVariant &value : properties) {
        QCOMPARE(value.userType(), static_cast<int>(QMetaType::QString));
    }
}

void tst_DirectoryNodes::directoryNodeWithoutDescriptionHasEmptyTexts()
{
    writeFile("top/a.config.json", leaf("A"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    COMPARE_LOG(log, noDescription(), noDescription(), noDescription());
    QCOMPARE(root->getProperties(), (Base::PropertyMap{{"labelTextId", QString("")},
                                                       {"type", "treenode"},
                                                       {"cpveVersion", QString("")},
                                                       {"configurationVersion", QString("")}}));
}

void tst_DirectoryNodes::eachDirectoryHasItsOwnDescription()
{
    writeFile("top/folder.json", R"({"labelTextId":"outer"})");
    writeFile("top/sub/folder.json", R"({"labelTextId":"inner"})");
    writeFile("top/sub/a.config.json", leaf("A"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getProperty("labelTextId"), QVariant("outer"));
    QCOMPARE(root->getLeaf("sub")->getProperty("labelTextId"), QVariant("inner"));
    QCOMPARE(childNames(root), QStringList{"sub"});
}

void tst_DirectoryNodes::brokenFolderDescriptionIsReportedThreeTimes()
{
    writeFile("top/folder.json", "broken");
    writeFile("top/a.config.json", leaf("A"));
    const LogLine broken = warning("Can't parse Json! of File \"top/folder.json\"");
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    COMPARE_LOG(log, broken, broken, broken);
    QCOMPARE(root->getProperty("labelTextId"), QVariant(QString("")));
    QCOMPARE(childNames(root), QStringList{"a"});
}

void tst_DirectoryNodes::emptyTopGivesNoRoot_data()
{
    QTest::addColumn<QStringList>("files");

    QTest::newRow("nothing") << QStringList{};
    QTest::newRow("folder description only") << QStringList{"top/folder.json"};
    QTest::newRow("files of the other kind only") << QStringList{"top/a.process.json"};
    QTest::newRow("other case") << QStringList{"top/a.CONFIG.json"};
    QTest::newRow("hidden file") << QStringList{"top/.a.config.json"};
    QTest::newRow("hidden directory") << QStringList{"top/.sub/a.config.json"};
}

void tst_DirectoryNodes::emptyTopGivesNoRoot()
{
    QFETCH(QStringList, files);
    for (const QString &file : files) {
        writeFile(file, leaf("A"));
    }
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    QVERIFY(root.isNull());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryNodes::emptySubDirectoryMakesANodeOfItsParentOnly()
{
    makeDirectory("top/sub");
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), noDescriptions(1));
    QCOMPARE(root->getNumberOfChilds(), 0);
}

void tst_DirectoryNodes::subDirectoryWithOtherFilesIsLeftOut()
{
    writeFile("top/sub/a.process.json", leaf("A"));
    writeFile("top/sub/folder.json", "{}");
    writeFile("top/b.config.json", leaf("B"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), noDescriptions(1));
    QCOMPARE(childNames(root), QStringList{"b"});
}

void tst_DirectoryNodes::subDirectoryWithSubDirectoriesIsKept()
{
    writeFile("top/sub/a.process.json", leaf("A"));
    makeDirectory("top/sub/below");
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), noDescriptions(2));
    QCOMPARE(childNames(root), QStringList{"sub"});
    QCOMPARE(root->getLeaf("sub")->getNumberOfChilds(), 0);
}

void tst_DirectoryNodes::otherFilesAreNothing()
{
    writeFile("top/a.config.json", leaf("A"));
    writeFile("top/b.process.json", leaf("B"));
    writeFile("top/c.config.json.bak", leaf("C"));
    writeFile("top/d.config.JSON", leaf("D"));
    writeFile("top/folder.json", "{}");
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(childNames(root), QStringList{"a"});
}

void tst_DirectoryNodes::hiddenEntriesAreNothing()
{
    writeFile("top/a.config.json", leaf("A"));
    writeFile("top/.b.config.json", leaf("B"));
    writeFile("top/.sub/c.config.json", leaf("C"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(childNames(root), QStringList{"a"});
}

QTEST_GUILESS_MAIN(tst_DirectoryNodes)

#include "tst_DirectoryNodes.moc"
