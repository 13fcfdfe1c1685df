#include "Configuration/StampedDescriptions.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"

#include <QSaveFile>

#include <csignal>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;

Base::BaseClassSharedPointer parsed(const QString &instanceName)
{
    return Access::getParsedConfigurationProcessDescription(QDir("base"), instanceName, false);
}

bool write(const QString &instanceName, const Base::BaseClassSharedPointer &root,
           bool isProcessDescription = false)
{
    return Access::setParsedConfigurationProcessDescription(
        QDir("base"), "module", "object", instanceName, root, isProcessDescription);
}

/// The same on a device that takes no more than some bytes a file.
bool writeOnFullDevice(rlim_t bytes, const QString &instanceName,
                       const Base::BaseClassSharedPointer &root, bool isProcessDescription = false)
{
    const auto former = std::signal(SIGXFSZ, SIG_IGN);
    bool result = true;
    {
        const ResourceLimit limit(RLIMIT_FSIZE, bytes);
        result = write(instanceName, root, isProcessDescription);
    }
    std::signal(SIGXFSZ, former);
    return result;
}

LogLine folderFailed(const QString &path)
{
    return warning("Cannot frame folder \"" + QFileInfo(path).absoluteFilePath() + '"');
}

LogLine leafMissing(const QString &path)
{
    return warning("Unable to find leaf for file \"" + QFileInfo(path).absoluteFilePath() + '"');
}

LogLine elementMissing(const QString &path)
{
    return warning("Invalid root node given during parsing file \"" + path + '"');
}

LogLine writeFailed(const QString &path)
{
    return warning("Error on writing to file! \"" + path + '"');
}

/// The message for a @p path at which no save file can be opened.
LogLine openFailed(const QString &path)
{
    QSaveFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Text);
    return warning("Can't open file  \"" + path + "\"  IO Error:  \"" + file.errorString() + '"');
}

} // namespace

/// Each test begins with an empty directory "base" and nothing recorded.
class tst_DirectoryFramingFailures : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void emptyInstanceNameIsRefused();
    void nullRootIsRefused();
    void missingFileIsReportedWithAnEmptyPath();
    void fileOfTheOtherKindDoesNotCount();
    void missingBaseDirectoryIsReportedWithAnEmptyPath();
    void failedWriteIsReported();
    void failedWriteOfAProcessDescriptionIsReported();
    void fileThatCannotBeReplacedIsReported();

    void fileWithoutElementEndsTheWalk();
    void fileThatDidNotParseEndsTheWalk();
    void fileBelowALeafEndsTheWalk();
    void fileInADirectoryWithoutElementEndsTheWalk();
    void directoryInADirectoryWithoutElementEndsTheWalk();
    void emptyDirectoryInADirectoryWithoutElementEndsTheWalk();
    void failureDeepBelowEndsTheWholeWalk();
    void failedFramingEndsTheWalk();
    void fileEntryWithoutElementIsRefused();
    void directoryEntryWithoutElementIsRefused();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_DirectoryFramingFailures::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("base");
    ConfigurationModificationHandler::getInstance().clearModifiedInstances();
}

void tst_DirectoryFramingFailures::cleanup()
{
    m_directory.reset();
}

void tst_DirectoryFramingFailures::emptyInstanceNameIsRefused()
{
    writeFile("base/.config.json", "former");
    writeFile("base/a.config.json", "former");
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!write("", plainLeaf("new")));
    // The name comes before the root.
    QVERIFY(!write({}, {}));

    COMPARE_LOG(log, warning("Instance name is empty!"), warning("Instance name is empty!"));
    QVERIFY(statesBelow(".") == states);
}

void tst_DirectoryFramingFailures::nullRootIsRefused()
{
    writeFile("base/i.config.json", "former");
    writeFile("base/top/a.process.json", "former");
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!write("i", {}));
    QVERIFY(!write("top", {}));
    QVERIFY(!write("missing", {}, true));

    const LogLine refused = warning("Invalid root node given");
    COMPARE_LOG(log, refused, refused, refused);
    QVERIFY(statesBelow(".") == states);
    QCOMPARE(recordedInstances(), QStringList());
}

void tst_DirectoryFramingFailures::missingFileIsReportedWithAnEmptyPath()
{
    const auto root = plainLeaf("new");
    root->addProperty("modifiedBy", "");
    root->addProperty("lastModified", "");
    const auto former = root->getProperties();
    LogCapture log;

    QVERIFY(!write("i", root));
    QVERIFY(!write("i", root, true));

    const LogLine missing = warning(
        "Configuration/Process Descriptionfile file does not exist: \"\"");
    COMPARE_LOG(log, missing, missing);
    QVERIFY(statesBelow("base").isEmpty());
    QCOMPARE(root->getProperties(), former);
    QCOMPARE(recordedInstances(), QStringList());
}

void tst_DirectoryFramingFailures::fileOfTheOtherKindDoesNotCount()
{
    writeFile("base/configured.config.json", "former");
    writeFile("base/processed.process.json", "former");
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!write("processed", plainLeaf("new")));
    QVERIFY(!write("configured", plainLeaf("new"), true));

    const LogLine missing = warning(
        "Configuration/Process Descriptionfile file does not exist: \"\"");
    COMPARE_LOG(log, missing, missing);
    QVERIFY(statesBelow(".") == states);
}

void tst_DirectoryFramingFailures::missingBaseDirectoryIsReportedWithAnEmptyPath()
{
    LogCapture log;

    QVERIFY(!Access::setParsedConfigurationProcessDescription(QDir("missing"), "m", "o", "i",
                                                              plainLeaf("new"), false));

    COMPARE_LOG(log, warning("Configuration/Process Descriptionfile file does not exist: \"\""));
    QVERIFY(!QFileInfo::exists("missing"));
}

void tst_DirectoryFramingFailures::failedWriteIsReported()
{
    writeFile("base/i.config.json", stampable("former"));
    const auto root = parsed("i");
    LogCapture log;

    QVERIFY(!writeOnFullDevice(0, "i", root));

    COMPARE_LOG(log, writeFailed("base/i.config.json"),
                warning("Error on commit file! \"base/i.config.json\""),
                warning("Unable to frame JSON-String!"));
    QCOMPARE(readFile("base/i.config.json"), stampable("former"));
    // The stamp was set before the write and stays.
    QCOMPARE(root->getProperty("modifiedBy"), QVariant("Device"));
    QCOMPARE(recordedInstances(), QStringList{"module|object|i"});
}

void tst_DirectoryFramingFailures::failedWriteOfAProcessDescriptionIsReported()
{
    writeFile("base/i.process.json", "former");
    LogCapture log;

    QVERIFY(!writeOnFullDevice(0, "i", plainLeaf("new"), true));

    COMPARE_LOG(log, writeFailed("base/i.process.json"),
                warning("Error on commit file! \"base/i.process.json\""),
                warning("Unable to frame JSON-String!"));
    QCOMPARE(readFile("base/i.process.json"), QByteArray("former"));
}

void tst_DirectoryFramingFailures::fileThatCannotBeReplacedIsReported()
{
    makeDirectory("base/i.process.json");
    LogCapture log;

    QVERIFY(!write("i", plainLeaf("new"), true));

    COMPARE_LOG(log, openFailed("base/i.process.json"), warning("Unable to frame JSON-String!"));
    QVERIFY(QFileInfo("base/i.process.json").isDir());
}

void tst_DirectoryFramingFailures::fileWithoutElementEndsTheWalk()
{
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/a.config.json", stampable("A"));
    writeFile("base/top/c.config.json", stampable("C"));
    const auto root = parsed("top");
    writeFile("base/top/b.config.json", stampable("B"));
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!write("top", root));

    COMPARE_LOG(log, leafMissing("base/top/b.config.json"), folderFailed("base/top"));
    QCOMPARE(recordedInstances(), QStringList{"module|object|top/a"});
    QCOMPARE(readFile("base/top/a.config.json"), stamped("A", recordedDate()));
    QVERIFY(stateOf("base/top/b.config.json") == states.value("./base/top/b.config.json"));
    QVERIFY(stateOf("base/top/c.config.json") == states.value("./base/top/c.config.json"));
    QCOMPARE(root->getLeaf("c")->getProperty("modifiedBy"), QVariant(""));
}

void tst_DirectoryFramingFailures::fileThatDidNotParseEndsTheWalk()
{
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/a.config.json", "broken");
    writeFile("base/top/b.config.json", stampable("B"));
    LogCapture log;
    const auto root = parsed("top");
    const auto states = statesBelow(".");
    COMPARE_LOG(log, warning("Parsing error:  \"illegal value\""));

    QVERIFY(!write("top", root));

    COMPARE_LOG(log, leafMissing("base/top/a.config.json"), folderFailed("base/top"));
    QVERIFY(statesBelow(".") == states);
    QCOMPARE(recordedInstances(), QStringList());
}

void tst_DirectoryFramingFailures::fileBelowALeafEndsTheWalk()
{
    writeFile("base/top/d/a.config.json", stampable("A"));
    const auto states = statesBelow(".");
    const auto root = emptyNode();
    root->addElement("d", plainLeaf("D"));
    LogCapture log;

    QVERIFY(!write("top", root));

    COMPARE_LOG(log, warning("Wrong URL: \"a\""), leafMissing("base/top/d/a.config.json"),
                folderFailed("base/top"));
    QVERIFY(statesBelow(".") == states);
}

void tst_DirectoryFramingFailures::fileInADirectoryWithoutElementEndsTheWalk()
{
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/a.config.json", stampable("A"));
    writeFile("base/top/c.config.json", stampable("C"));
    const auto root = parsed("top");
    writeFile("base/top/b/x.config.json", stampable("X"));
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!write("top", root));

    COMPARE_LOG(log, elementMissing("base/top/b/x.config.json"), folderFailed("base/top"));
    QCOMPARE(recordedInstances(), QStringList{"module|object|top/a"});
    QCOMPARE(readFile("base/top/a.config.json"), stamped("A", recordedDate()));
    for (const QString path : {"base/top/b/x.config.json", "base/top/c.config.json"}) {
        QVERIFY(stateOf(path) == states.value("./" + path));
    }
}

void tst_DirectoryFramingFailures::directoryInADirectoryWithoutElementEndsTheWalk()
{
    writeFile("base/top/b/inner/x.config.json", stampable("X"));
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!write("top", emptyNode()));

    COMPARE_LOG(log, elementMissing("base/top/b/inner"), folderFailed("base/top"));
    QVERIFY(statesBelow(".") == states);
}

void tst_DirectoryFramingFailures::emptyDirectoryInADirectoryWithoutElementEndsTheWalk()
{
    makeDirectory("base/top/b/inner");
    LogCapture log;

    QVERIFY(!write("top", emptyNode()));

    COMPARE_LOG(log, elementMissing("base/top/b/inner"), folderFailed("base/top"));
}

void tst_DirectoryFramingFailures::failureDeepBelowEndsTheWholeWalk()
{
    writeFile("base/top/d/e/a.config.json", stampable("A"));
    writeFile("base/top/d/z.config.json", stampable("Z"));
    writeFile("base/top/z.config.json", stampable("Z"));
    LogCapture log;
    const auto root = parsed("top");
    root->getLeaf("d/e").dynamicCast<ConfigurationAndProcessDataTreeNode>()->deleteElement("a");
    const auto states = statesBelow(".");
    log.take();

    QVERIFY(!write("top", root));

    COMPARE_LOG(log, leafMissing("base/top/d/e/a.config.json"), folderFailed("base/top"));
    QVERIFY(statesBelow(".") == states);
    QCOMPARE(recordedInstances(), QStringList());
}

void tst_DirectoryFramingFailures::failedFramingEndsTheWalk()
{
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/a.config.json", stampable("A"));
    writeFile("base/top/b.config.json", stampable(QByteArray(1000, 'B')));
    writeFile("base/top/c.config.json", stampable("C"));
    const auto root = parsed("top");
    const auto last = stateOf("base/top/c.config.json");
    LogCapture log;

    QVERIFY(!writeOnFullDevice(500, "top", root));

    COMPARE_LOG(log, writeFailed("base/top/b.config.json"),
                warning("Framing Error occured \"base/top/b.config.json\""),
                folderFailed("base/top"));
    QCOMPARE(recordedInstances(), (QStringList{"module|object|top/a", "module|object|top/b"}));
    QVERIFY(readFile("base/top/a.config.json").contains(R"("modifiedBy":"Device")"));
    QCOMPARE(root->getLeaf("b")->getProperty("modifiedBy"), QVariant("Device"));
    QVERIFY(stateOf("base/top/c.config.json") == last);
    QCOMPARE(root->getLeaf("c")->getProperty("modifiedBy"), QVariant(""));
}

void tst_DirectoryFramingFailures::fileEntryWithoutElementIsRefused()
{
    writeFile("base/a.config.json", "former");
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!Access::frameConfigDir({}, "m", "o", QFileInfo("base/a.config.json"), "a"));

    COMPARE_LOG(log, elementMissing("base/a.config.json"));
    QVERIFY(statesBelow(".") == states);
    QCOMPARE(recordedInstances(), QStringList());
}

void tst_DirectoryFramingFailures::directoryEntryWithoutElementIsRefused()
{
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/a.config.json", "former");
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!Access::frameConfigDir({}, "m", "o", QFileInfo("base/top"), "top"));

    COMPARE_LOG(log, elementMissing("base/top/a.config.json"));
    QVERIFY(statesBelow(".") == states);
}

QTEST_GUILESS_MAIN(tst_DirectoryFramingFailures)

#include "tst_DirectoryFramingFailures.moc"
