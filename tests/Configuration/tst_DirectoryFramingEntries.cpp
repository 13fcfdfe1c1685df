#include "Configuration/StampedDescriptions.h"
#include "support/LogCapture.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;

Base::BaseClassSharedPointer parsed(const QString &instanceName)
{
    return Access::getParsedConfigurationProcessDescription(QDir("base"), instanceName, false);
}

bool write(const QString &instanceName, const Base::BaseClassSharedPointer &root)
{
    return Access::setParsedConfigurationProcessDescription(QDir("base"), "module", "object",
                                                            instanceName, root, false);
}

/// Hands out one element for every name, and notes the names.
class RecordingNode : public ConfigurationAndProcessDataTreeNode
{
public:
    explicit RecordingNode(const BaseClassSharedPointer &element)
        : ConfigurationAndProcessDataTreeNode({{"type", "treenode"}}, nullptr)
        , m_element(element)
    {
    }

    using ConfigurationAndProcessDataTreeNode::getLeaf;
    // NOLINTNEXTLINE(readability-const-return-type): the signature is that of the base class
    const BaseClassSharedPointer getLeaf(const QString &url) override
    {
        asked.append(url);
        return m_element;
    }

    QStringList asked;

private:
    BaseClassSharedPointer m_element;
};

} // namespace

/// Each test begins with an empty directory "base" and nothing recorded.
class tst_DirectoryFramingEntries : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void directoryWithoutContentIsNothing_data();
    void directoryWithoutContentIsNothing();
    void subDirectoryWithoutElementAndContentIsNothing();
    void hiddenEntriesAreNothing();
    void elementsAreFoundByTheVirtualLookup();
    void fileEntryIsLookedUpInItsDirectory();
    void otherFileEntryIsNothing();
    void loopOfLinksIsPassedOver();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_DirectoryFramingEntries::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("base");
    ConfigurationModificationHandler::getInstance().clearModifiedInstances();
}

void tst_DirectoryFramingEntries::cleanup()
{
    m_directory.reset();
}

void tst_DirectoryFramingEntries::directoryWithoutContentIsNothing_data()
{
    QTest::addColumn<bool>("hasElement");

    QTest::newRow("element") << true;
    QTest::newRow("no element") << false;
}

void tst_DirectoryFramingEntries::directoryWithoutContentIsNothing()
{
    QFETCH(bool, hasElement);
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/a.process.json", stampable("A"));
    const auto states = statesBelow(".");
    const Base::BaseClassSharedPointer element = hasElement ? plainLeaf("X")
                                                            : Base::BaseClassSharedPointer();
    LogCapture log;

    QVERIFY(Access::frameConfigDir(element, "m", "o", QFileInfo("base/top"), "top"));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(statesBelow(".") == states);
    QCOMPARE(recordedInstances(), QStringList());
}

void tst_DirectoryFramingEntries::subDirectoryWithoutElementAndContentIsNothing()
{
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/sub/folder.json", "{}");
    writeFile("base/top/sub/a.process.json", stampable("A"));
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(write("top", emptyNode()));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(statesBelow(".") == states);
}

void tst_DirectoryFramingEntries::hiddenEntriesAreNothing()
{
    writeFile("base/top/.a.config.json", stampable("A"));
    writeFile("base/top/.sub/b.config.json", stampable("B"));
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(write("top", emptyNode()));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(statesBelow(".") == states);
}

void tst_DirectoryFramingEntries::elementsAreFoundByTheVirtualLookup()
{
    writeFile("base/top/a.b.config.json", "former");
    writeFile("base/top/d.e/f.config.json", "former");
    writeFile("base/top/g.process.json", "former");
    const auto inner = QSharedPointer<RecordingNode>::create(plainLeaf("X"));
    const auto outer = QSharedPointer<RecordingNode>::create(inner);
    LogCapture log;

    QVERIFY(Access::frameConfigDir(outer, "m", "o", QFileInfo("base/top"), "top"));

    QCOMPARE(outer->asked, (QStringList{"a", "d.e"}));
    QCOMPARE(inner->asked, QStringList{"f"});
    QCOMPARE(readFile("base/top/d.e/f.config.json"),
             QByteArray(R"({"type":"string","value":"X"})"));
}

void tst_DirectoryFramingEntries::fileEntryIsLookedUpInItsDirectory()
{
    writeFile("base/a.b.config.json", stampable("former"));
    const auto node = emptyNode();
    const auto element = parsed("a.b");
    node->addElement("a", element);
    LogCapture log;

    QVERIFY(Access::frameConfigDir(node, "m", "o", QFileInfo("base/a.b.config.json"), "name"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(recordedInstances(), QStringList{"m|o|name"});
    QCOMPARE(readFile("base/a.b.config.json"), stamped("former", recordedDate()));
}

void tst_DirectoryFramingEntries::otherFileEntryIsNothing()
{
    writeFile("base/a.process.json", "former");
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(Access::frameConfigDir({}, "m", "o", QFileInfo("base/a.process.json"), "a"));
    QVERIFY(Access::frameConfigDir({}, "m", "o", QFileInfo("base/missing"), "missing"));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(statesBelow(".") == states);
}

void tst_DirectoryFramingEntries::loopOfLinksIsPassedOver()
{
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/sub/folder.json", "{}");
    writeFile("base/top/sub/a.config.json", stampable("A"));
    makeLink("base/top/sub/link", "../../top");
    const LogLine passedOver = warning(
        "Directory leads back to itself and is passed over: \"base/top/sub/link\"");
    LogCapture log;
    const auto root = parsed("top");
    COMPARE_LOG(log, passedOver);

    QVERIFY(write("top", root));

    COMPARE_LOG(log, passedOver);
    QCOMPARE(recordedInstances(), QStringList{"module|object|top/sub/a"});
    QCOMPARE(readFile("base/top/sub/a.config.json"), stamped("A", recordedDate()));
}

QTEST_GUILESS_MAIN(tst_DirectoryFramingEntries)

#include "tst_DirectoryFramingEntries.moc"
