#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/InstanceTrees.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/LogCapture.h"
#include "support/WorkingDirectory.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;
using Node = ConfigurationAndProcessDataTreeNode;

QByteArray nodeWith(const QByteArray &name, const QByteArray &child)
{
    return R"({"type":"treenode","value":{")" + name + "\":" + child + "}}";
}

Base::BaseClassSharedPointer parsedTop()
{
    Base::BaseClassSharedPointer root;
    return Access::parseConfigDir(root, QFileInfo("top")) ? root : Base::BaseClassSharedPointer();
}

QSharedPointer<Node> emptyNode()
{
    return QSharedPointer<Node>::create(QJsonObject{{"type", "treenode"}}, nullptr);
}

/// Notes its children as they come.
class RecordingNode : public ConfigurationAndProcessDataTreeNode
{
public:
    RecordingNode() : ConfigurationAndProcessDataTreeNode({{"type", "treenode"}}, nullptr) { }

    void addElement(const QString &key, const BaseClassSharedPointer &element) override
    {
        added.append(key + ' ' + QString::number(element->getNumberOfChilds()));
        ConfigurationAndProcessDataTreeNode::addElement(key, element);
    }

    QStringList added;
};

} // namespace

/// Each test parses a directory "top" that is made anew.
class tst_DirectoryParsing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void topDirectoryIsTheNamelessRoot();
    void fileHangsUnderItsStem();
    void fileKeepsItsOwnTree();
    void directoryHangsUnderItsWholeName();
    void urlIsThePathOfNames();
    void deepDirectoriesAreWalked();

    void extensionSelectsTheFiles();
    void configurationDirectoryHoldsConfigurationLeaves();
    void anyExtensionIsPossible();

    void directoryJoinsTheRootThatIsThere();
    void fileJoinsTheRootThatIsThere();
    void nodeJoinsItsParentBeforeItsChildrenAreParsed();
    void emptyDirectoryDoesNotJoinTheRoot();

    void fileReplacesADirectoryOfItsName();
    void laterFileReplacesAnEarlierOneOfItsStem();
    void elementOfTheRootIsReplaced();

    void linksAreParsedUnderTheirNames();
    void loopOfLinksIsPassedOver_data();
    void loopOfLinksIsPassedOver();
    void linkToAnOuterDirectoryEnds();
    void parsingChangesNothingOnTheDisk();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_DirectoryParsing::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("top");
}

void tst_DirectoryParsing::cleanup()
{
    m_directory.reset();
}

void tst_DirectoryParsing::topDirectoryIsTheNamelessRoot()
{
    writeFile("top/a.config.json", leaf("A"));
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    QCOMPARE(log.take(), noDescriptions(1));
    QVERIFY(!root.dynamicCast<Node>().isNull());
    QCOMPARE(childNames(root), QStringList{"a"});
    QCOMPARE(valueAt(root, "a"), QString("A"));
    QCOMPARE(valueAt(root, "top/a"), QString("(nothing)"));
}

void tst_DirectoryParsing::fileHangsUnderItsStem()
{
    writeFile("top/s.t.u.config.json", leaf("S"));
    writeFile("top/with blank.config.json", leaf("B"));
    writeFile(QString::fromUtf8("top/\xC3\xA4.config.json"), leaf("U"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(childNames(root), (QStringList{"s", "with blank", QString::fromUtf8("\xC3\xA4")}));
    QCOMPARE(valueAt(root, "s"), QString("S"));
}

void tst_DirectoryParsing::fileKeepsItsOwnTree()
{
    writeFile("top/a.config.json", nodeWith("b", nodeWith("c", leaf("C"))));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(valueAt(root, "a/b/c"), QString("C"));
    QVERIFY(!root->getLeaf("a").dynamicCast<Node>().isNull());
}

void tst_DirectoryParsing::directoryHangsUnderItsWholeName()
{
    writeFile("top/d.e.f/a.config.json", leaf("A"));
    writeFile("top/x.config.json/b.config.json", leaf("B"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), noDescriptions(3));
    QCOMPARE(childNames(root), (QStringList{"d.e.f", "x.config.json"}));
    QCOMPARE(valueAt(root, "d.e.f/a"), QString("A"));
    QCOMPARE(valueAt(root, "x.config.json/b"), QString("B"));
}

void tst_DirectoryParsing::urlIsThePathOfNames()
{
    writeFile("top/outer/inner.1/file.v2.config.json",
              nodeWith("group", nodeWith("leaf", leaf("L"))));
    LogCapture log;

    const auto root = parsedTop();
    QStringList urls;
    QString prefix;
    root->collectUrlsOfElements(urls, prefix);

    QCOMPARE(urls, QStringList{"/outer/inner.1/file/group/leaf"});
    QCOMPARE(valueAt(root, "outer/inner.1/file/group/leaf"), QString("L"));
}

void tst_DirectoryParsing::deepDirectoriesAreWalked()
{
    QString path = "top";
    QString url;
    for (int depth = 0; depth < 30; ++depth) {
        path += "/d";
        url += "d/";
    }
    writeFile(path + "/a.config.json", leaf("A"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(valueAt(root, url + "a"), QString("A"));
    QCOMPARE(log.take(), noDescriptions(31));
}

void tst_DirectoryParsing::extensionSelectsTheFiles()
{
    writeFile("top/a.config.json", leaf("A"));
    writeFile("top/b.process.json", leaf("B"));
    writeFile("top/sub/c.config.json", leaf("C"));
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseDir(root, QFileInfo("top"), "process.json"));

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), noDescriptions(1));
    QCOMPARE(childNames(root), QStringList{"b"});
    QVERIFY(!root->getLeafProcessDataValue("b").isNull());
}

void tst_DirectoryParsing::configurationDirectoryHoldsConfigurationLeaves()
{
    writeFile("top/a.config.json", leaf("A"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QVERIFY(!root->getLeafConfigurationData("a").isNull());
}

void tst_DirectoryParsing::anyExtensionIsPossible()
{
    writeFile("top/a.config.json", leaf("A"));
    writeFile("top/b.process.json", leaf("B"));
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseDir(root, QFileInfo("top"), ".json"));

    QCOMPARE(log.take(), noDescriptions(1));
    QCOMPARE(childNames(root), (QStringList{"a", "b"}));
}

void tst_DirectoryParsing::directoryJoinsTheRootThatIsThere()
{
    writeFile("top/a.config.json", leaf("A"));
    const auto node = emptyNode();
    Base::BaseClassSharedPointer root = node;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    QCOMPARE(log.take(), noDescriptions(1));
    QCOMPARE(root.data(), node.data());
    QCOMPARE(childNames(root), QStringList{"top"});
    QCOMPARE(valueAt(root, "top/a"), QString("A"));
}

void tst_DirectoryParsing::fileJoinsTheRootThatIsThere()
{
    writeFile("top/a.b.config.json", leaf("A"));
    const auto node = emptyNode();
    Base::BaseClassSharedPointer root = node;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top/a.b.config.json")));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root.data(), node.data());
    QCOMPARE(childNames(root), QStringList{"a"});
    QCOMPARE(valueAt(root, "a"), QString("A"));
}

void tst_DirectoryParsing::nodeJoinsItsParentBeforeItsChildrenAreParsed()
{
    writeFile("top/a.config.json", nodeWith("b", leaf("B")));
    const auto node = QSharedPointer<RecordingNode>::create();
    Base::BaseClassSharedPointer root = node;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));
    QVERIFY(Access::parseConfigDir(root, QFileInfo("top/a.config.json")));

    QCOMPARE(node->added, (QStringList{"top 0", "a 1"}));
    QCOMPARE(node->getLeaf(QString("top"))->getNumberOfChilds(), 1);
}

void tst_DirectoryParsing::emptyDirectoryDoesNotJoinTheRoot()
{
    writeFile("top/a.process.json", leaf("A"));
    Base::BaseClassSharedPointer root = emptyNode();
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getNumberOfChilds(), 0);
}

void tst_DirectoryParsing::fileReplacesADirectoryOfItsName()
{
    writeFile("top/a/b.config.json", leaf("B"));
    writeFile("top/a.config.json", leaf("A"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), noDescriptions(2));
    QCOMPARE(childNames(root), QStringList{"a"});
    QCOMPARE(valueAt(root, "a"), QString("A"));
    QCOMPARE(root->getLeaf("a")->getNumberOfChilds(), 0);
}

void tst_DirectoryParsing::laterFileReplacesAnEarlierOneOfItsStem()
{
    writeFile("top/a.2.config.json", leaf("second"));
    writeFile("top/a.1.config.json", leaf("first"));
    writeFile("top/b.x.config.json", leaf("small"));
    writeFile("top/b.X.config.json", leaf("capital"));
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), noDescriptions(1));
    QCOMPARE(childNames(root), (QStringList{"a", "b"}));
    QCOMPARE(valueAt(root, "a"), QString("second"));
    QCOMPARE(valueAt(root, "b"), QString("small"));
}

void tst_DirectoryParsing::elementOfTheRootIsReplaced()
{
    writeFile("top/a.config.json", leaf("A"));
    const auto node = emptyNode();
    const auto former = emptyNode();
    node->addElement("top", former);
    Base::BaseClassSharedPointer root = node;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    QCOMPARE(log.take(), noDescriptions(1));
    QCOMPARE(childNames(root), QStringList{"top"});
    QCOMPARE(valueAt(root, "top/a"), QString("A"));
    QCOMPARE(former->getNumberOfChilds(), 0);
}

void tst_DirectoryParsing::linksAreParsedUnderTheirNames()
{
    writeFile("elsewhere/x.config.json", leaf("X"));
    writeFile("other.config.json", leaf("O"));
    makeLink("top/sub", "../elsewhere");
    makeLink("top/a.config.json", "../other.config.json");
    makeLink("top/broken.config.json", "nowhere");
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QCOMPARE(log.take(), noDescriptions(2));
    QCOMPARE(childNames(root), (QStringList{"a", "sub"}));
    QCOMPARE(valueAt(root, "a"), QString("O"));
    QCOMPARE(valueAt(root, "sub/x"), QString("X"));
}

void tst_DirectoryParsing::loopOfLinksIsPassedOver_data()
{
    QTest::addColumn<QString>("link");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("parent");

    QTest::newRow("to the top") << "top/sub/link"
                                << "../../top"
                                << "sub";
    QTest::newRow("to itself") << "top/sub/link"
                               << "."
                               << "sub";
    QTest::newRow("to the parent") << "top/sub/link"
                                   << ".."
                                   << "sub";
    QTest::newRow("in the top") << "top/link"
                                << "."
                                << "";
}

void tst_DirectoryParsing::loopOfLinksIsPassedOver()
{
    QFETCH(QString, link);
    QFETCH(QString, target);
    QFETCH(QString, parent);
    writeFile("top/sub/a.config.json", leaf("A"));
    writeFile("top/z.config.json", leaf("Z"));
    makeLink(link, target);
    LogCapture log;

    const auto root = parsedTop();

    QVERIFY(!root.isNull());
    QList<LogLine> lines = log.take();
    QCOMPARE(lines.removeAll(
                 warning("Directory leads back to itself and is passed over: \"" + link + '"')),
             1);
    QCOMPARE(lines, noDescriptions(2));
    const auto node = parent.isEmpty() ? root : root->getLeaf(parent);
    QVERIFY(!node->getChildMap().contains("link"));
    QCOMPARE(valueAt(root, "sub/a"), QString("A"));
    QCOMPARE(valueAt(root, "z"), QString("Z"));
}

void tst_DirectoryParsing::linkToAnOuterDirectoryEnds()
{
    makeDirectory("base/top");
    writeFile("base/top/a.config.json", leaf("A"));
    writeFile("base/b.config.json", leaf("B"));
    makeLink("base/top/outer", "..");
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("base/top")));

    QList<LogLine> lines = log.take();
    QCOMPARE(lines.removeAll(warning(
                 "Directory leads back to itself and is passed over: \"base/top/outer/top\"")),
             1);
    QCOMPARE(lines, noDescriptions(2));
    QCOMPARE(childNames(root), (QStringList{"a", "outer"}));
    QCOMPARE(childNames(root->getLeaf("outer")), QStringList{"b"});
}

void tst_DirectoryParsing::parsingChangesNothingOnTheDisk()
{
    writeFile("top/folder.json", "{}");
    writeFile("top/a.config.json", leaf("A"));
    writeFile("top/sub/b.config.json", leaf("B"));
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!parsedTop().isNull());

    QVERIFY(statesBelow(".") == states);
}

QTEST_GUILESS_MAIN(tst_DirectoryParsing)

#include "tst_DirectoryParsing.moc"
