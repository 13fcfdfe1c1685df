#include "Configuration/StampedDescriptions.h"
#include "support/LogCapture.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;

Base::BaseClassSharedPointer parsed(const QString &instanceName, bool isProcessDescription = false)
{
    return Access::getParsedConfigurationProcessDescription(QDir("base"), instanceName,
                                                            isProcessDescription);
}

bool write(const QString &instanceName, const Base::BaseClassSharedPointer &root,
           bool isProcessDescription = false)
{
    return Access::setParsedConfigurationProcessDescription(
        QDir("base"), "module", "object", instanceName, root, isProcessDescription);
}

void change(const Base::BaseClassSharedPointer &root, const QString &url, const QString &value)
{
    const auto leaf = root->getLeaf(url);
    QVERIFY(!leaf.isNull());
    QCOMPARE(leaf->setProperty("value", value), Base::SetValueChanged);
}

} // namespace

/// Each test begins with an empty directory "base" and nothing recorded.
class tst_DirectoryFraming : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void fileInstanceIsStampedAndWritten();
    void stampLiesWithinTheCall();
    void fileInstanceThatCannotBeStampedIsWritten();
    void laterWritesLengthenTheChain();
    void processDescriptionIsWrittenWithoutStamp();
    void fileOfTheOtherKindStaysUntouched();
    void instanceNameMayHoldDots();

    void everyFileOfADirectoryIsStampedAndWritten();
    void changedTreeComesBackFromTheDisk();
    void unchangedFilesAreRewritten();
    void otherFilesStayUntouched();
    void directoryComesBeforeTheFile();
    void directoryIsWrittenAsConfigurationWhateverIsAsked();
    void instanceNamesAreThePathsOfNames();
    void filesAreWrittenByName();
    void directoryNodesAreNotStamped();
    void severalFilesOfOneStemGetTheSameElement();
    void nameThatMerelyEndsInTheExtensionIsWritten();
    void elementsWithoutFilesAreNotWritten();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_DirectoryFraming::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("base");
    ConfigurationModificationHandler::getInstance().clearModifiedInstances();
}

void tst_DirectoryFraming::cleanup()
{
    m_directory.reset();
}

void tst_DirectoryFraming::fileInstanceIsStampedAndWritten()
{
    writeFile("base/i.config.json", stampable("former"));
    const auto root = parsed("i");
    change(root, "v", "new");
    LogCapture log;

    QVERIFY(write("i", root));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(recordedInstances(), QStringList{"module|object|i"});
    QCOMPARE(readFile("base/i.config.json"), stamped("new", recordedDate()));
    QCOMPARE(root->getProperty("modifiedBy"), QVariant("Device"));
    QCOMPARE(root->getProperty("lastModified"), QVariant(recordedDate()));
}

void tst_DirectoryFraming::stampLiesWithinTheCall()
{
    writeFile("base/i.config.json", stampable("former"));
    const auto root = parsed("i");
    const QDateTime begin = QDateTime::currentDateTime();

    QVERIFY(write("i", root));

    const QDateTime end = QDateTime::currentDateTime();
    const QString text = parsed("i")->getProperty("lastModified").toString();
    const QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
    QVERIFY(date.isValid());
    QVERIFY(begin <= date);
    QVERIFY(date <= end);
}

void tst_DirectoryFraming::fileInstanceThatCannotBeStampedIsWritten()
{
    writeFile("base/i.config.json", "former");
    LogCapture log;

    QVERIFY(write("i", plainLeaf("new")));

    COMPARE_LOG(log, warning("Cannot find property 'last modified' in root node!"),
                warning("Cannot find property 'modified by' in root node!"),
                warning("Cannot find property 'modified by' in root node!"));
    QCOMPARE(recordedInstances(), QStringList());
    QCOMPARE(readFile("base/i.config.json"), QByteArray(R"({"type":"string","value":"new"})"));
}

void tst_DirectoryFraming::laterWritesLengthenTheChain()
{
    writeFile("base/i.config.json", stampable("former"));
    const auto root = parsed("i");

    QVERIFY(write("i", root));
    QVERIFY(write("i", parsed("i")));

    QCOMPARE(parsed("i")->getProperty("modifiedBy"), QVariant("Device(Device)"));
    QCOMPARE(recordedInstances(), (QStringList{"module|object|i", "module|object|i"}));
}

void tst_DirectoryFraming::processDescriptionIsWrittenWithoutStamp()
{
    writeFile("base/i.process.json", stampable("former"));
    const auto root = parsed("i", true);
    change(root, "v", "new");
    const auto former = root->getProperties();
    LogCapture log;

    QVERIFY(write("i", root, true));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(recordedInstances(), QStringList());
    QCOMPARE(root->getProperties(), former);
    QCOMPARE(readFile("base/i.process.json"), stampable("new"));
}

void tst_DirectoryFraming::fileOfTheOtherKindStaysUntouched()
{
    writeFile("base/i.config.json", stampable("configured"));
    writeFile("base/i.process.json", stampable("processed"));
    const auto configuration = stateOf("base/i.config.json");
    const auto process = stateOf("base/i.process.json");

    QVERIFY(write("i", parsed("i", true), true));
    QVERIFY(stateOf("base/i.config.json") == configuration);
    QVERIFY(stateOf("base/i.process.json") != process);

    const auto newProcess = stateOf("base/i.process.json");
    QVERIFY(write("i", parsed("i")));
    QVERIFY(stateOf("base/i.config.json") != configuration);
    QVERIFY(stateOf("base/i.process.json") == newProcess);
}

void tst_DirectoryFraming::instanceNameMayHoldDots()
{
    writeFile("base/i.v1.config.json", stampable("former"));

    QVERIFY(write("i.v1", parsed("i.v1")));

    QCOMPARE(recordedInstances(), QStringList{"module|object|i.v1"});
    QCOMPARE(readFile("base/i.v1.config.json"), stamped("former", recordedDate()));
}

void tst_DirectoryFraming::everyFileOfADirectoryIsStampedAndWritten()
{
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/a.config.json", stampable("A"));
    writeFile("base/top/d/folder.json", "{}");
    writeFile("base/top/d/s.config.json", stampable("S"));
    const auto root = parsed("top");
    LogCapture log;

    QVERIFY(write("top", root));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(recordedInstances(), (QStringList{"module|object|top/a", "module|object|top/d/s"}));
    QCOMPARE(readFile("base/top/a.config.json"),
             stamped("A", root->getLeaf("a")->getProperty("lastModified").toString()));
    QCOMPARE(readFile("base/top/d/s.config.json"), stamped("S", recordedDate()));
}

void tst_DirectoryFraming::changedTreeComesBackFromTheDisk()
{
    writeFile("base/top/folder.json", R"({"labelTextId":"label"})");
    writeFile("base/top/a.x.config.json", stampable("A"));
    writeFile("base/top/d.1/s.config.json", stampable("S"));
    LogCapture log;
    const auto root = parsed("top");
    change(root, "a/v", "new A");
    change(root, "d.1/s/v", "new S");

    QVERIFY(write("top", root));
    const auto again = parsed("top");

    QVERIFY(!again.isNull());
    QJsonObject written;
    QJsonObject read;
    root->getContentAsQJsonObject(written);
    again->getContentAsQJsonObject(read);
    QCOMPARE(read, written);
    QCOMPARE(again->getLeaf("d.1/s/v")->getProperty("value"), QVariant("new S"));
}

void tst_DirectoryFraming::unchangedFilesAreRewritten()
{
    writeFile("base/top/a.config.json", R"({"type":"string","value":"A"})");
    const auto former = stateOf("base/top/a.config.json");
    LogCapture log;

    QVERIFY(write("top", parsed("top")));

    const auto state = stateOf("base/top/a.config.json");
    QCOMPARE(state.content, former.content);
    QVERIFY(state.inode != former.inode);
}

void tst_DirectoryFraming::otherFilesStayUntouched()
{
    writeFile("base/top/a.config.json", stampable("A"));
    const QStringList others{"base/top/folder.json",       "base/top/a.process.json",
                             "base/top/a.config.json.bak", "base/top/b.config.JSON",
                             "base/top/.c.config.json",    "base/top/sub/folder.json",
                             "base/other.config.json",     "base/top.config.json"};
    for (const QString &other : others) {
        writeFile(other, R"({"labelTextId":"label"})");
    }
    auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(write("top", parsed("top")));

    QCOMPARE(log.take(), QList<LogLine>());
    auto newStates = statesBelow(".");
    QVERIFY(states.take("./base/top/a.config.json") != newStates.take("./base/top/a.config.json"));
    // The directory of a file that is replaced has another time.
    states.remove("./base/top");
    newStates.remove("./base/top");
    QVERIFY(newStates == states);
}

void tst_DirectoryFraming::directoryComesBeforeTheFile()
{
    writeFile("base/i/a.config.json", stampable("A"));
    writeFile("base/i.config.json", stampable("I"));
    const auto former = stateOf("base/i.config.json");
    LogCapture log;

    QVERIFY(write("i", parsed("i")));

    QCOMPARE(recordedInstances(), QStringList{"module|object|i/a"});
    QVERIFY(stateOf("base/i.config.json") == former);
}

void tst_DirectoryFraming::directoryIsWrittenAsConfigurationWhateverIsAsked()
{
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/a.config.json", stampable("A"));
    writeFile("base/top/p.process.json", stampable("P"));
    const auto process = stateOf("base/top/p.process.json");
    const auto root = parsed("top");
    LogCapture log;

    QVERIFY(write("top", root, true));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(recordedInstances(), QStringList{"module|object|top/a"});
    QCOMPARE(readFile("base/top/a.config.json"), stamped("A", recordedDate()));
    QVERIFY(stateOf("base/top/p.process.json") == process);
}

void tst_DirectoryFraming::instanceNamesAreThePathsOfNames()
{
    writeFile("base/top/d.1/e.2/s.t.config.json", stampable("S"));
    LogCapture log;
    const auto root = parsed("top");

    QVERIFY(write("top", root));
    QCOMPARE(recordedInstances(), QStringList{"module|object|top/d.1/e.2/s"});

    ConfigurationModificationHandler::getInstance().clearModifiedInstances();
    QVERIFY(Access::frameConfigDir(root, "m", "o", QFileInfo("base/top"), "any name"));
    QCOMPARE(recordedInstances(), QStringList{"m|o|any name/d.1/e.2/s"});
}

void tst_DirectoryFraming::filesAreWrittenByName()
{
    writeFile("base/top/b.config.json", stampable("b"));
    writeFile("base/top/a/z.config.json", stampable("z"));
    writeFile("base/top/Z.config.json", stampable("Z"));
    writeFile("base/top/a2.config.json", stampable("a2"));
    LogCapture log;

    QVERIFY(write("top", parsed("top")));

    QCOMPARE(recordedInstances(), (QStringList{"module|object|top/Z", "module|object|top/a/z",
                                               "module|object|top/a2", "module|object|top/b"}));
}

void tst_DirectoryFraming::directoryNodesAreNotStamped()
{
    writeFile("base/top/a.config.json", stampable("A"));
    LogCapture log;
    const auto root = parsed("top");
    root->addProperty("modifiedBy", "");
    root->addProperty("lastModified", "");

    QVERIFY(write("top", root));

    QCOMPARE(root->getProperty("modifiedBy"), QVariant(""));
    QCOMPARE(root->getProperty("lastModified"), QVariant(""));
}

void tst_DirectoryFraming::severalFilesOfOneStemGetTheSameElement()
{
    writeFile("base/top/a.1.config.json", stampable("one"));
    writeFile("base/top/a.2.config.json", stampable("two"));
    LogCapture log;
    const auto root = parsed("top");

    QVERIFY(write("top", root));

    // What stood in the first file was lost to the tree already; the second is stamped once more.
    QCOMPARE(recordedInstances(), (QStringList{"module|object|top/a", "module|object|top/a"}));
    QVERIFY(readFile("base/top/a.1.config.json").contains(R"("value":"two")"));
    QVERIFY(readFile("base/top/a.1.config.json").contains(R"("modifiedBy":"Device")"));
    QVERIFY(readFile("base/top/a.2.config.json").contains(R"("value":"two")"));
    QVERIFY(readFile("base/top/a.2.config.json").contains("\"modifiedBy\":\"Device(Device)\""));
}

void tst_DirectoryFraming::nameThatMerelyEndsInTheExtensionIsWritten()
{
    writeFile("base/top/myconfig.json", "former");
    const auto root = emptyNode();
    root->addElement("myconfig", plainLeaf("new"));
    LogCapture log;

    QVERIFY(write("top", root));

    QCOMPARE(readFile("base/top/myconfig.json"), QByteArray(R"({"type":"string","value":"new"})"));
}

void tst_DirectoryFraming::elementsWithoutFilesAreNotWritten()
{
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/a.config.json", stampable("A"));
    const auto root = parsed("top").dynamicCast<ConfigurationAndProcessDataTreeNode>();
    const auto node = emptyNode();
    node->addElement("y", plainLeaf("Y"));
    root->addElement("x", plainLeaf("X"));
    root->addElement("sub", node);
    const auto names = statesBelow(".").keys();
    LogCapture log;

    QVERIFY(write("top", root));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(statesBelow(".").keys(), names);
    QCOMPARE(recordedInstances(), QStringList{"module|object|top/a"});
}

QTEST_GUILESS_MAIN(tst_DirectoryFraming)

#include "tst_DirectoryFraming.moc"
