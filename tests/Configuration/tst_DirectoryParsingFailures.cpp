#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/InstanceTrees.h"
#include "support/LogCapture.h"
#include "support/WorkingDirectory.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;
using Node = ConfigurationAndProcessDataTreeNode;

const char *const leafText = R"({"type":"string","value":"x"})";

Base::BaseClassSharedPointer leafRoot()
{
    return QSharedPointer<ConfigurationDataValue>::create(
        QJsonObject{{"type", "string"}, {"value", "root"}}, nullptr);
}

/// What the parser tells of a description without type.
LogLine noType()
{
    return warning("key 'type' not found in JSON object");
}

bool isNullChild(const Base::BaseClassSharedPointer &element, const QString &name)
{
    const auto child = element->getChildMap().constFind(name);
    return child != element->getChildMap().constEnd() && child.value().isNull();
}

} // namespace

/// Each test parses a directory "top" that is made anew.
class tst_DirectoryParsingFailures : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void fileWithoutARootIsRefused();
    void missingFileWithoutARootIsRefused();
    void otherFileWithoutARootIsNothing_data();
    void otherFileWithoutARootIsNothing();
    void missingFileBecomesANullChild();

    void leafAsRootTakesNoFile();
    void fileIsParsedAlsoForALeafAsRoot();
    void leafAsRootIgnoresOtherFiles();
    void leafAsRootTakesNoDirectory();
    void directoryIsWalkedAlsoForALeafAsRoot();

    void brokenFileBecomesANullChild_data();
    void brokenFileBecomesANullChild();
    void brokenFileDoesNotStopTheWalk();
    void brokenFileReplacesAnEarlierOneOfItsStem();
    void nameThatMerelyEndsInTheExtensionDoesNotParse();
    void nullChildIsSkippedByCollecting();
    void nullChildIsLeftOutOfTheUrls();
    void nullChildIsLeftOutOfTheFraming();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_DirectoryParsingFailures::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("top");
}

void tst_DirectoryParsingFailures::cleanup()
{
    m_directory.reset();
}

void tst_DirectoryParsingFailures::fileWithoutARootIsRefused()
{
    // Broken, to show that it is not even looked at.
    writeFile("top/a.config.json", "broken");
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(!Access::parseDir(root, QFileInfo("top/a.config.json"), "config.json"));

    COMPARE_LOG(log, warning("Invalid root node given during parsing file \"top/a.config.json\""));
    QVERIFY(root.isNull());
}

void tst_DirectoryParsingFailures::missingFileWithoutARootIsRefused()
{
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(!Access::parseConfigDir(root, QFileInfo("missing.config.json")));

    COMPARE_LOG(log,
                warning("Invalid root node given during parsing file \"missing.config.json\""));
    QVERIFY(root.isNull());
}

void tst_DirectoryParsingFailures::otherFileWithoutARootIsNothing_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("other kind") << "top/a.process.json";
    QTest::newRow("other case") << "top/a.Config.json";
    QTest::newRow("folder description") << "top/folder.json";
    QTest::newRow("missing directory") << "missing";
}

void tst_DirectoryParsingFailures::otherFileWithoutARootIsNothing()
{
    QFETCH(QString, path);
    if (path.startsWith("top/")) {
        writeFile(path, "broken");
    }
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo(path)));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(root.isNull());
}

void tst_DirectoryParsingFailures::missingFileBecomesANullChild()
{
    Base::BaseClassSharedPointer root = QSharedPointer<Node>::create(
        QJsonObject{{"type", "treenode"}}, nullptr);
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("missing.config.json")));

    COMPARE_LOG(log, warning("Can't open file  \"missing.config.json\"  IO Error:  "
                             "\"No such file or directory\""));
    QVERIFY(isNullChild(root, "missing"));
}

void tst_DirectoryParsingFailures::leafAsRootTakesNoFile()
{
    writeFile("top/a.config.json", leafText);
    const auto former = leafRoot();
    Base::BaseClassSharedPointer root = former;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top/a.config.json")));

    COMPARE_LOG(log, warning("Unable to get treenode to add config file \"top/a.config.json\""));
    QCOMPARE(root.data(), former.data());
    QCOMPARE(root->getNumberOfChilds(), 0);
    QCOMPARE(root->getProperty("value"), QVariant("root"));
}

void tst_DirectoryParsingFailures::fileIsParsedAlsoForALeafAsRoot()
{
    writeFile("top/a.config.json", "{}");
    Base::BaseClassSharedPointer root = leafRoot();
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top/a.config.json")));

    COMPARE_LOG(log, noType(),
                warning("Unable to get treenode to add config file \"top/a.config.json\""));
    QCOMPARE(root->getNumberOfChilds(), 0);
}

void tst_DirectoryParsingFailures::leafAsRootIgnoresOtherFiles()
{
    writeFile("top/a.process.json", leafText);
    Base::BaseClassSharedPointer root = leafRoot();
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top/a.process.json")));

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryParsingFailures::leafAsRootTakesNoDirectory()
{
    writeFile("top/a.config.json", leafText);
    const auto former = leafRoot();
    Base::BaseClassSharedPointer root = former;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    COMPARE_LOG(log, noDescription(), noDescription(), noDescription(),
                warning("Unable to get treenode to add config directory \"top\""));
    QCOMPARE(root.data(), former.data());
    QCOMPARE(root->getNumberOfChilds(), 0);
}

void tst_DirectoryParsingFailures::directoryIsWalkedAlsoForALeafAsRoot()
{
    writeFile("top/folder.json", "{}");
    writeFile("top/a.config.json", "{}");
    writeFile("top/sub/folder.json", "{}");
    writeFile("top/sub/b.config.json", "{}");
    Base::BaseClassSharedPointer root = leafRoot();
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    // Below the node that hangs nowhere there is a parent for everything.
    COMPARE_LOG(log, warning("Unable to get treenode to add config directory \"top\""), noType(),
                noType());
    QCOMPARE(root->getNumberOfChilds(), 0);
}

void tst_DirectoryParsingFailures::brokenFileBecomesANullChild_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");

    QTest::newRow("empty") << QByteArray() << "Parsing error:  \"illegal value\"";
    QTest::newRow("no type") << QByteArray("{}") << "key 'type' not found in JSON object";
    QTest::newRow("list") << QByteArray("[]") << "key 'type' not found in JSON object";
    QTest::newRow("node without value")
        << QByteArray(R"({"type":"treenode"})") << "childs information is invalid (\"type\")";
}

void tst_DirectoryParsingFailures::brokenFileBecomesANullChild()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    writeFile("top/folder.json", "{}");
    writeFile("top/a.config.json", content);
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    COMPARE_LOG(log, warning(message));
    QVERIFY(!root.isNull());
    QCOMPARE(root->getNumberOfChilds(), 1);
    QVERIFY(isNullChild(root, "a"));
}

void tst_DirectoryParsingFailures::brokenFileDoesNotStopTheWalk()
{
    writeFile("top/folder.json", "{}");
    writeFile("top/a.config.json", leafText);
    writeFile("top/b.config.json", "{}");
    writeFile("top/c.config.json", leafText);
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    COMPARE_LOG(log, noType());
    QCOMPARE(root->getNumberOfChilds(), 3);
    QVERIFY(isNullChild(root, "b"));
    QVERIFY(!root->getLeaf("a").isNull());
    QVERIFY(!root->getLeaf("c").isNull());
}

void tst_DirectoryParsingFailures::brokenFileReplacesAnEarlierOneOfItsStem()
{
    writeFile("top/folder.json", "{}");
    writeFile("top/a.1.config.json", leafText);
    writeFile("top/a.2.config.json", "{}");
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    COMPARE_LOG(log, noType());
    QCOMPARE(root->getNumberOfChilds(), 1);
    QVERIFY(isNullChild(root, "a"));
}

void tst_DirectoryParsingFailures::nameThatMerelyEndsInTheExtensionDoesNotParse()
{
    writeFile("top/folder.json", "{}");
    writeFile("top/myconfig.json", leafText);
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    COMPARE_LOG(log, warning("Path is not valid:  \"top/myconfig.json\""),
                warning("No valid file extension found \"\""));
    QVERIFY(isNullChild(root, "myconfig"));
}

void tst_DirectoryParsingFailures::nullChildIsSkippedByCollecting()
{
    writeFile("top/folder.json", "{}");
    writeFile("top/a.config.json", "{}");
    writeFile("top/b.config.json", leafText);
    Base::BaseClassSharedPointer root;
    LogCapture log;
    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));
    COMPARE_LOG(log, noType());

    for (const bool sorted : {false, true}) {
        Base::ListElements elements;
        root->collectElements(elements, sorted);

        COMPARE_LOG(log, warning("Key has no value!"));
        QCOMPARE(elements, Base::ListElements{root->getLeaf("b")});
    }
}

void tst_DirectoryParsingFailures::nullChildIsLeftOutOfTheUrls()
{
    writeFile("top/folder.json", "{}");
    writeFile("top/a.config.json", "{}");
    writeFile("top/b.config.json", leafText);
    Base::BaseClassSharedPointer root;
    LogCapture log;
    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));
    COMPARE_LOG(log, noType());
    QStringList urls;
    QString prefix;

    root->collectUrlsOfElements(urls, prefix);

    COMPARE_LOG(log, warning("Key has no value!"));
    QCOMPARE(urls, QStringList{"/b"});
}

void tst_DirectoryParsingFailures::nullChildIsLeftOutOfTheFraming()
{
    writeFile("top/folder.json", "{}");
    writeFile("top/a.config.json", "{}");
    writeFile("top/b.config.json", leafText);
    Base::BaseClassSharedPointer root;
    LogCapture log;
    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));
    COMPARE_LOG(log, noType());
    QJsonObject json;

    root->getContentAsQJsonObject(json);

    COMPARE_LOG(log, warning("Key has no value!"));
    QCOMPARE(json.value("value").toObject().keys(), QStringList{"b"});
}

QTEST_GUILESS_MAIN(tst_DirectoryParsingFailures)

#include "tst_DirectoryParsingFailures.moc"
