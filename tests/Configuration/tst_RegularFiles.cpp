#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/InstanceTrees.h"
#include "Configuration/StampedDescriptions.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;

/// Far more than any of the tests needs. A file that is waited for would be waited for for ever.
constexpr unsigned int boundSeconds = 60;

void makeFifo(const QString &path)
{
    makeDirectory(QFileInfo(path).path());
    if (::mkfifo(QFile::encodeName(path).constData(), 0600) != 0) {
        qFatal("no fifo");
    }
}

LogLine notRead(const QString &path)
{
    return warning("Not a regular file and not read: \"" + path + '"');
}

LogLine notWritten(const QString &path)
{
    return warning("Not a regular file and not written: \"" + path + '"');
}

int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd"))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}

bool isFifo(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 && S_ISFIFO(status.st_mode);
}

} // namespace

/// Names that fit and lead to what is no file. Each test runs in an empty directory of its own.
class tst_RegularFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void parserReadsNothingElse_data();
    void parserReadsNothingElse();
    void parserReadsThroughALinkToAFile();
    void parserOpensAFileOnceWhateverFailedBefore();
    void parserWaitsForTheHolderOfALease();
    void parserIsRefusedWhatTheSystemWillNotOpen();
    void managerReadsNothingElse();
    void folderDescriptionIsReadFromNothingElse();
    void instanceIsReadFromNothingElse();
    void dependencyIsReadFromNothingElse();
    void parsedDirectoryPassesThemOver_data();
    void parsedDirectoryPassesThemOver();
    void directoryOfNothingElseHasNoNode();
    void informationPassesThemOver();
    void fileIsNotWrittenInTheirPlace_data();
    void fileIsNotWrittenInTheirPlace();
    void writtenDirectoryPassesThemOver();
    void entryThatIsNamedIsRefusedUnstamped_data();
    void entryThatIsNamedIsRefusedUnstamped();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_RegularFiles::init()
{
    alarm(boundSeconds);
    m_directory.reset(new WorkingDirectory);
}

void tst_RegularFiles::cleanup()
{
    m_directory.reset();
    alarm(0);
}

void tst_RegularFiles::parserReadsNothingElse_data()
{
    QTest::addColumn<QString>("target");

    QTest::newRow("fifo") << QString();
    QTest::newRow("link to a fifo") << "pipe";
    QTest::newRow("device without end") << "/dev/zero";
    QTest::newRow("device without content") << "/dev/null";
}

void tst_RegularFiles::parserReadsNothingElse()
{
    QFETCH(QString, target);
    makeFifo(target.isEmpty() ? QString("a.config.json") : QString("pipe"));
    if (!target.isEmpty()) {
        makeLink("a.config.json", target);
    }
    LogCapture log;

    const auto root = ConfigurationAndProcessDataParser().parseFromFile("a.config.json");

    COMPARE_LOG(log, notRead("a.config.json"));
    QVERIFY(root.isNull());
}

void tst_RegularFiles::parserReadsThroughALinkToAFile()
{
    writeFile("there/x", leaf("X"));
    makeLink("middle", "there/x");
    makeLink("a.config.json", "middle");
    LogCapture log;

    const auto root = ConfigurationAndProcessDataParser().parseFromFile("a.config.json");

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getProperty("value"), QVariant("X"));
}

/// The reason of a former failure is none of this file's: a second descriptor of it would stay open.
void tst_RegularFiles::parserOpensAFileOnceWhateverFailedBefore()
{
    writeFile("a.config.json", leaf("X"));
    QVERIFY(!ConfigurationAndProcessDataParser().parseFromFile("a.config.json").isNull());
    const int before = openDescriptors();

    errno = EWOULDBLOCK;
    const auto root = ConfigurationAndProcessDataParser().parseFromFile("a.config.json");

    QVERIFY(!root.isNull());
    QCOMPARE(openDescriptors(), before);
}

void tst_RegularFiles::parserWaitsForTheHolderOfALease()
{
    writeFile("a.config.json", leaf("X"));
    ChildProcess holder([](const ChildSide &parent) {
        const int fd = ::open("a.config.json", O_RDONLY | O_CLOEXEC);
        sigset_t demand;
        sigemptyset(&demand);
        sigaddset(&demand, SIGIO);
        sigprocmask(SIG_BLOCK, &demand, nullptr);
        if (::fcntl(fd, F_SETLEASE, F_WRLCK) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        parent.say();
        int signal = 0;
        CHILD_VERIFY(sigwait(&demand, &signal) == 0);
        CHILD_VERIFY(::fcntl(fd, F_SETLEASE, F_UNLCK) == 0);
        return 0;
    });
    if (!holder.waitUntilReady()) {
        QCOMPARE(holder.waitForExit(), ChildProcess::sm_cannotTry);
        QSKIP("the file system knows no leases");
    }
    LogCapture log;

    const auto root = ConfigurationAndProcessDataParser().parseFromFile("a.config.json");

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(!root.isNull());
    QCOMPARE(root->getProperty("value"), QVariant("X"));
    QCOMPARE(holder.waitForExit(), 0);
}

/// Though it is known to be a file.
void tst_RegularFiles::parserIsRefusedWhatTheSystemWillNotOpen()
{
    writeFile("a.config.json", leaf("X"));
    LogCapture log;
    ConfigurationAndProcessDataParser parser;
    Base::BaseClassSharedPointer root;

    {
        const ResourceLimit noDescriptors(RLIMIT_NOFILE, 0);
        root = parser.parseFromFile("a.config.json");
    }

    COMPARE_LOG(log,
                warning(R"(Can't open file  "a.config.json"  IO Error:  "Too many open files")"));
    QVERIFY(root.isNull());
    QVERIFY(!parser.parseFromFile("a.config.json").isNull());
}

void tst_RegularFiles::managerReadsNothingElse()
{
    makeFifo("a.process.json");
    LogCapture log;

    const auto root = ProcessDataManager().createProcessDataFromFile(
        "a.process.json", ProcessDataManager::InitTypeSharedMemoryCreate);

    COMPARE_LOG(log, notRead("a.process.json"));
    QVERIFY(root.isNull());
}

void tst_RegularFiles::folderDescriptionIsReadFromNothingElse()
{
    makeFifo("top/folder.json");
    QVariant value("former");
    LogCapture log;

    Access::readFolderDescription("top", "labelTextId", value);

    COMPARE_LOG(log, notRead("top/folder.json"));
    QCOMPARE(value, QVariant("former"));
}

void tst_RegularFiles::instanceIsReadFromNothingElse()
{
    makeFifo("base/a.config.json");
    makeFifo("base/a.process.json");
    LogCapture log;

    QVERIFY(Access::getParsedConfigurationProcessDescription(QDir("base"), "a", false).isNull());
    COMPARE_LOG(log, notRead("base/a.config.json"));

    QVERIFY(Access::getParsedConfigurationProcessDescription(QDir("base"), "a", true).isNull());
    COMPARE_LOG(log, notRead("base/a.process.json"));
}

void tst_RegularFiles::dependencyIsReadFromNothingElse()
{
    makeFifo("base/a.config.json");
    LogCapture log;

    QCOMPARE(Access::getDependency(QDir("base"), "a"), QString());

    COMPARE_LOG(log, notRead("base/a.config.json"));
}

void tst_RegularFiles::parsedDirectoryPassesThemOver_data()
{
    QTest::addColumn<QString>("target");

    QTest::newRow("fifo") << "../pipe";
    QTest::newRow("device without end") << "/dev/zero";
    QTest::newRow("device without content") << "/dev/null";
}

void tst_RegularFiles::parsedDirectoryPassesThemOver()
{
    QFETCH(QString, target);
    makeFifo("pipe");
    makeFifo("top/a.config.json");
    writeFile("top/folder.json", "{}");
    writeFile("top/c.config.json", leaf("C"));
    makeLink("top/b.config.json", target);
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(childNames(root), QStringList{"c"});
    QCOMPARE(valueAt(root, "c"), QString("C"));
}

void tst_RegularFiles::directoryOfNothingElseHasNoNode()
{
    makeDirectory("top/sub");
    writeFile("top/folder.json", "{}");
    makeLink("top/sub/b.config.json", "/dev/null");
    Base::BaseClassSharedPointer root;
    LogCapture log;

    QVERIFY(Access::parseConfigDir(root, QFileInfo("top")));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getNumberOfChilds(), 0);
}

void tst_RegularFiles::informationPassesThemOver()
{
    makeFifo("pipe");
    writeFile("top/c.process.json", R"({"type":"treenode","value":{},"doubleBuffer":true,)"
                                    R"("sizeOfSharedMemory":4,"keyProcessDataMemory":"k"})");
    makeLink("top/a.process.json", "../pipe");
    makeLink("top/b.process.json", "/dev/zero");
    bool doubleBuffer = false;
    int size = 0;
    QString key;
    LogCapture log;

    QVERIFY(Access::getSharedMemoryInfoFromDir(QFileInfo("top"), doubleBuffer, size, key));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(doubleBuffer);
    QCOMPARE(size, 4);
    QCOMPARE(key, QString("k"));
}

void tst_RegularFiles::fileIsNotWrittenInTheirPlace_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("fifo") << "pipe.config.json";
    QTest::newRow("link to a fifo") << "link.config.json";
}

void tst_RegularFiles::fileIsNotWrittenInTheirPlace()
{
    QFETCH(QString, path);
    makeFifo("pipe.config.json");
    makeLink("link.config.json", "pipe.config.json");
    LogCapture log;

    QVERIFY(!ConfigurationAndProcessDataParser().frameToFile(plainLeaf("X"), path));

    COMPARE_LOG(log, notWritten(path));
    QVERIFY(isFifo("pipe.config.json"));
    QVERIFY(QFileInfo("link.config.json").isSymLink());
}

void tst_RegularFiles::writtenDirectoryPassesThemOver()
{
    makeFifo("pipe");
    writeFile("base/top/a.config.json", stampable("A"));
    makeLink("base/top/b.config.json", "../../pipe");
    const auto root = Access::getParsedConfigurationProcessDescription(QDir("base"), "top", false);
    ConfigurationModificationHandler::getInstance().clearModifiedInstances();
    LogCapture log;

    QVERIFY(Access::setParsedConfigurationProcessDescription(QDir("base"), "module", "object",
                                                             "top", root, false));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(recordedInstances(), QStringList{"module|object|top/a"});
    QVERIFY(isFifo("pipe"));
}

void tst_RegularFiles::entryThatIsNamedIsRefusedUnstamped_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("FIFO") << "pipe.config.json";
    QTest::newRow("link to a FIFO") << "link.config.json";
    QTest::newRow("link to a device") << "device.config.json";
    QTest::newRow("without a subtree") << "other.config.json";
}

void tst_RegularFiles::entryThatIsNamedIsRefusedUnstamped()
{
    QFETCH(QString, path);
    makeFifo("pipe.config.json");
    makeLink("link.config.json", "pipe.config.json");
    makeLink("other.config.json", "pipe.config.json");
    makeLink("device.config.json", "/dev/null");
    const auto root = emptyNode();
    for (const char *name : {"pipe", "link", "device"}) {
        root->addElement(name, ConfigurationAndProcessDataParser().parseFromByteArray(
                                   stampable("X"), "config.json"));
    }
    ConfigurationModificationHandler::getInstance().clearModifiedInstances();
    LogCapture log;

    QVERIFY(!Access::frameConfigDir(root, "module", "object", QFileInfo(path), "top"));

    COMPARE_LOG(log, notWritten(path));
    QCOMPARE(recordedInstances(), QStringList());
    QVERIFY(isFifo("pipe.config.json"));
}

QTEST_GUILESS_MAIN(tst_RegularFiles)

#include "tst_RegularFiles.moc"
