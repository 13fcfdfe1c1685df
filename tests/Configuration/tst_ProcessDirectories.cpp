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

/// A process file that says the region has 96 bytes and the key "K".
QByteArray processFile(const QByteArray &size = "96")
{
    return R"({"type":"treenode","doubleBuffer":true,"keyProcessDataMemory":"K",)"
           R"("sizeOfSharedMemory":)"
           + size + R"(,"value":{"l":)" + leaf("L") + "}}";
}

/// Notes the properties that are added.
class RecordingNode : public ConfigurationAndProcessDataTreeNode
{
public:
    RecordingNode() : ConfigurationAndProcessDataTreeNode({{"type", "treenode"}}, nullptr) { }

    void addProperty(const QString &key, const QVariant &value) override
    {
        added.append({key, value});
        ConfigurationAndProcessDataTreeNode::addProperty(key, value);
    }

    QList<QPair<QString, QVariant>> added;
};

/// The text of the last lines, and a deed that is done at the first of them.
QStringList reactedLines;
void (*reaction)() = nullptr;

void react(QtMsgType /*type*/, const QMessageLogContext & /*context*/, const QString &text)
{
    reactedLines.append(text);
    if (reaction != nullptr) {
        reaction();
        reaction = nullptr;
    }
}

/// The lines of a parse of "base/x.process.json" as a process directory whose content changes as
/// soon as something is logged: another program at work on the same disk.
QStringList linesOfParsingWhile(void (*change)(), Base::BaseClassSharedPointer &root, bool &result)
{
    reactedLines.clear();
    reaction = change;
    const QtMessageHandler former = qInstallMessageHandler(react);
    result = Access::parseProcessDir(root, QFileInfo("base/x.process.json"));
    qInstallMessageHandler(former);
    return reactedLines;
}

QString inDebugForm(const Base::BaseClassSharedPointer &root)
{
    QString text;
    QDebug(&text).nospace() << root;
    return text;
}

} // namespace

/// Each test begins with an empty directory "base".
class tst_ProcessDirectories : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void processDirectoryHasTheMemoryFactsAtItsRoot();
    void processDirectoryTakesTheFactsOfSubDirectories();
    void processDirectoryWithoutFilesIsRefused();
    void processDirectoryWithADisagreementIsNotParsed();
    void processDirectoryWithABrokenFileIsNotParsed();
    void processDirectoryBeginsWithoutFacts();
    void memoryFactsAreAddedInAFixedOrder();
    void memoryFactsReplaceFormerOnes();
    void memoryFactsGoToALeafAsWell();
    void processDirectoryThatVanishesIsReported();
    void processDirectoryThatBecomesAFileIsReported();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_ProcessDirectories::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("base");
}

void tst_ProcessDirectories::cleanup()
{
    m_directory.reset();
}

void tst_ProcessDirectories::processDirectoryHasTheMemoryFactsAtItsRoot()
{
    writeFile("base/folder.json", R"({"labelTextId":"label"})");
    writeFile("base/a.process.json", processFile());
    writeFile("base/b.config.json", leaf("B"));
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseProcessDir(root, QFileInfo("base")));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getProperties(), (Base::PropertyMap{{"labelTextId", "label"},
                                                       {"type", "treenode"},
                                                       {"cpveVersion", ""},
                                                       {"configurationVersion", ""},
                                                       {"doubleBuffer", true},
                                                       {"sizeOfSharedMemory", 96},
                                                       {"keyProcessDataMemory", "K"}}));
    const auto properties = root->getProperties();
    QCOMPARE(properties.value("doubleBuffer").userType(), static_cast<int>(QMetaType::Bool));
    QCOMPARE(properties.value("sizeOfSharedMemory").userType(), static_cast<int>(QMetaType::Int));
    QCOMPARE(root->getChildMap().keys(), QStringList{"a"});
    QVERIFY(!root->getLeafProcessDataValue("a/l").isNull());
}

void tst_ProcessDirectories::processDirectoryTakesTheFactsOfSubDirectories()
{
    writeFile("base/sub/folder.json", "{}");
    writeFile("base/folder.json", "{}");
    writeFile("base/sub/a.process.json", processFile());
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseProcessDir(root, QFileInfo("base")));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getProperty("sizeOfSharedMemory"), QVariant(96));
    QVERIFY(!root->getLeaf("sub")->hasProperty("sizeOfSharedMemory"));
    QCOMPARE(valueAt(root, "sub/a/l"), QString("L"));
}

void tst_ProcessDirectories::processDirectoryWithoutFilesIsRefused()
{
    writeFile("base/a.config.json", leaf("A"));
    makeDirectory("base/sub");
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(!Access::parseProcessDir(root, QFileInfo("base")));

    COMPARE_LOG(log, warning("No sharedMemory description: \"base\""));
    QVERIFY(root.isNull());
}

void tst_ProcessDirectories::processDirectoryWithADisagreementIsNotParsed()
{
    writeFile("base/a.process.json", processFile());
    writeFile("base/b.process.json", processFile("100"));
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(!Access::parseProcessDir(root, QFileInfo("base")));

    COMPARE_LOG(log, warning("SharedMemorySize is different: 96 != 100 \"base/b.process.json\""));
    QVERIFY(root.isNull());
}

void tst_ProcessDirectories::processDirectoryWithABrokenFileIsNotParsed()
{
    writeFile("base/a.process.json", processFile());
    writeFile("base/b.process.json", "{}");
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(!Access::parseProcessDir(root, QFileInfo("base")));

    COMPARE_LOG(log, warning("key 'type' not found in JSON object"),
                warning("Can't parse process data file: \"base/b.process.json\""));
    QVERIFY(root.isNull());
}

void tst_ProcessDirectories::processDirectoryBeginsWithoutFacts()
{
    writeFile("base/a.process.json", R"({"type":"treenode","value":{}})");
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(!Access::parseProcessDir(root, QFileInfo("base")));

    COMPARE_LOG(log, warning("Can't read sharedMemorySize or -Key: -1 \"\" path: "
                             "\"base/a.process.json\""));
    QVERIFY(root.isNull());
}

void tst_ProcessDirectories::memoryFactsAreAddedInAFixedOrder()
{
    writeFile("base/folder.json", "{}");
    writeFile("base/a.process.json", processFile());
    const auto node = QSharedPointer<RecordingNode>::create();
    Base::BaseClassSharedPointer root = node;
    LogCapture log;

    QVERIFY(Access::parseProcessDir(root, QFileInfo("base")));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root.data(), node.data());
    QCOMPARE(node->added, (QList<QPair<QString, QVariant>>{{"doubleBuffer", true},
                                                           {"sizeOfSharedMemory", 96},
                                                           {"keyProcessDataMemory", "K"}}));
    QCOMPARE(valueAt(root, "base/a/l"), QString("L"));
    QVERIFY(!root->getLeaf("base")->hasProperty("doubleBuffer"));
}

void tst_ProcessDirectories::memoryFactsReplaceFormerOnes()
{
    writeFile("base/folder.json", "{}");
    writeFile("base/a.process.json", processFile());
    Base::BaseClassSharedPointer root = QSharedPointer<Node>::create(
        QJsonObject{{"sizeOfSharedMemory", 1}, {"doubleBuffer", false}}, nullptr);
    LogCapture log;

    QVERIFY(Access::parseProcessDir(root, QFileInfo("base")));

    COMPARE_LOG(log, warning("\"PropertyMap already contains key:\" \"doubleBuffer\" \"!\""),
                warning("\"PropertyMap already contains key:\" \"sizeOfSharedMemory\" \"!\""));
    QCOMPARE(root->getProperty("doubleBuffer"), QVariant(true));
    QCOMPARE(root->getProperty("sizeOfSharedMemory"), QVariant(96));
}

void tst_ProcessDirectories::memoryFactsGoToALeafAsWell()
{
    writeFile("base/folder.json", "{}");
    writeFile("base/a.process.json", processFile());
    Base::BaseClassSharedPointer root = QSharedPointer<ConfigurationDataValue>::create(
        QJsonObject{{"type", "string"}}, nullptr);
    LogCapture log;

    QVERIFY(Access::parseProcessDir(root, QFileInfo("base")));

    COMPARE_LOG(log, warning("Unable to get treenode to add config directory \"base\""));
    QCOMPARE(root->getProperty("keyProcessDataMemory"), QVariant("K"));
    QCOMPARE(root->getNumberOfChilds(), 0);
}

void tst_ProcessDirectories::processDirectoryThatVanishesIsReported()
{
    // The unknown version is worth a line, but no failure.
    writeFile("base/x.process.json/a.process.json",
              R"({"type":"treenode","schemeVersion":2,"doubleBuffer":true,)"
              R"("sizeOfSharedMemory":96,"keyProcessDataMemory":"K","value":{}})");
    Base::BaseClassSharedPointer root;
    bool result = true;

    const QStringList lines = linesOfParsingWhile(
        [] { QFile::remove("base/x.process.json/a.process.json"); }, root, result);

    QVERIFY(!result);
    QCOMPARE(lines, (QStringList{"Received incompatible scheme version: 2 , 1 !",
                                 "Can't parse dir: true " + inDebugForm({}) + " \""
                                     + QFileInfo("base/x.process.json").absoluteFilePath() + '"'}));
    QVERIFY(root.isNull());
}

void tst_ProcessDirectories::processDirectoryThatBecomesAFileIsReported()
{
    writeFile("base/x.process.json/a.process.json",
              R"({"type":"treenode","schemeVersion":2,"doubleBuffer":true,)"
              R"("sizeOfSharedMemory":96,"keyProcessDataMemory":"K","value":{}})");
    Base::BaseClassSharedPointer root;
    bool result = true;

    const QStringList lines = linesOfParsingWhile(
        [] {
            QDir("base/x.process.json").removeRecursively();
            writeFile("base/x.process.json", processFile());
        },
        root, result);

    QVERIFY(!result);
    QCOMPARE(lines,
             (QStringList{"Received incompatible scheme version: 2 , 1 !",
                          "Invalid root node given during parsing file \"base/x.process.json\"",
                          "Can't parse dir: false " + inDebugForm({}) + " \""
                              + QFileInfo("base/x.process.json").absoluteFilePath() + '"'}));
    QVERIFY(inDebugForm({}).startsWith("QSharedPointer("));
    QVERIFY(root.isNull());
}

QTEST_GUILESS_MAIN(tst_ProcessDirectories)

#include "tst_ProcessDirectories.moc"
