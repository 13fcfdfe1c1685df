#include "Configuration/InstanceTrees.h"
#include "Configuration/StampedDescriptions.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;

/// So many that link to each other have 986,410 ways through them.
constexpr int manyDirectories = 9;

LogLine passedOver(const QString &path)
{
    return warning("Directory has another place in the tree and is passed over: \"" + path + '"');
}

Base::BaseClassSharedPointer parsedTop()
{
    return Access::getParsedConfigurationProcessDescription(QDir("base"), "top", false);
}

bool write(const Base::BaseClassSharedPointer &root)
{
    return Access::setParsedConfigurationProcessDescription(QDir("base"), "module", "object", "top",
                                                            root, false);
}

/// A directory with a folder description, so that it is parsed without a message.
void makeFolder(const QString &path)
{
    writeFile(path + "/folder.json", "{}");
}

QString numbered(int number)
{
    return 'd' + QString::number(number);
}

/// Directories d1, d2 and so on in @p path, each with a file "v" and a link to each other one.
void makeLinkedToEachOther(const QString &path, const QByteArray &fileName)
{
    for (int from = 1; from <= manyDirectories; ++from) {
        const QString directory = path + '/' + numbered(from);
        makeFolder(directory);
        writeFile(directory + '/' + fileName,
                  R"({"type":"treenode","value":{"v":{"type":"string"}},"doubleBuffer":true,)"
                  R"("sizeOfSharedMemory":4,"keyProcessDataMemory":"k"})");
        for (int to = 1; to <= manyDirectories; ++to) {
            if (to != from) {
                makeLink(directory + "/to" + numbered(to), "../" + numbered(to));
            }
        }
    }
}

int countOf(const QList<LogLine> &lines, const QString &beginning)
{
    return int(std::count_if(lines.cbegin(), lines.cend(), [&beginning](const LogLine &line) {
        return line.text.startsWith(beginning);
    }));
}

} // namespace

/// Links to directories in a directory "base/top" that each test makes anew.
class tst_LinkedDirectories : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void ownPlaceWins_data();
    void ownPlaceWins();
    void placeBelowALinkedDirectoryWins();
    void secondLinkIsPassedOver();
    void placeOfADirectoryThatALinkBroughtInIsPassedOver();
    void hiddenDirectoryHasNoPlaceOfItsOwn();
    void directoryThatCannotBeListedGivesNoPlace();
    void walksThatFollowEachOtherAreTheirOwn();
    void directoriesThatLinkToEachOtherAreParsedOnce();
    void directoriesOutsideThatLinkToEachOtherAreParsedOnce();
    void directoriesThatLinkToEachOtherAreAskedOnce();
    void directoriesThatLinkToEachOtherAreWrittenOnce();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_LinkedDirectories::init()
{
    m_directory.reset(new WorkingDirectory);
    makeFolder("base/top");
    ConfigurationModificationHandler::getInstance().clearModifiedInstances();
}

void tst_LinkedDirectories::cleanup()
{
    m_directory.reset();
}

void tst_LinkedDirectories::ownPlaceWins_data()
{
    QTest::addColumn<QString>("link");

    QTest::newRow("before it") << "a";
    QTest::newRow("behind it") << "z";
}

void tst_LinkedDirectories::ownPlaceWins()
{
    QFETCH(QString, link);
    makeFolder("base/top/real");
    writeFile("base/top/real/x.config.json", leaf("X"));
    makeLink("base/top/" + link, "real");
    LogCapture log;

    const auto root = parsedTop();

    COMPARE_LOG(log, passedOver("base/top/" + link));
    QCOMPARE(childNames(root), QStringList{"real"});
    QCOMPARE(valueAt(root, "real/x"), QString("X"));
}

void tst_LinkedDirectories::placeBelowALinkedDirectoryWins()
{
    makeFolder("outside");
    makeFolder("outside/real");
    writeFile("outside/real/x.config.json", leaf("X"));
    makeLink("outside/a", "real");
    makeLink("base/top/link", "../../outside");
    LogCapture log;

    const auto root = parsedTop();

    COMPARE_LOG(log, passedOver("base/top/link/a"));
    QCOMPARE(valueAt(root, "link/real/x"), QString("X"));
}

void tst_LinkedDirectories::secondLinkIsPassedOver()
{
    makeFolder("outside");
    writeFile("outside/x.config.json", leaf("X"));
    makeLink("base/top/a", "../../outside");
    makeLink("base/top/b", "a");
    LogCapture log;

    const auto root = parsedTop();

    COMPARE_LOG(log, passedOver("base/top/b"));
    QCOMPARE(childNames(root), QStringList{"a"});
    QCOMPARE(valueAt(root, "a/x"), QString("X"));
}

void tst_LinkedDirectories::placeOfADirectoryThatALinkBroughtInIsPassedOver()
{
    makeFolder("outside");
    makeFolder("outside/real");
    writeFile("outside/real/x.config.json", leaf("X"));
    makeLink("base/top/a", "../../outside/real");
    makeLink("base/top/b", "../../outside");
    LogCapture log;

    const auto root = parsedTop();

    COMPARE_LOG(log, passedOver("base/top/b/real"));
    QCOMPARE(valueAt(root, "a/x"), QString("X"));
    QCOMPARE(childNames(root->getLeaf("b")), QStringList());
}

void tst_LinkedDirectories::hiddenDirectoryHasNoPlaceOfItsOwn()
{
    makeFolder("base/top/.hidden");
    makeFolder("base/top/.hidden/sub");
    writeFile("base/top/.hidden/sub/x.config.json", leaf("X"));
    makeLink("base/top/a", ".hidden/sub");
    LogCapture log;

    const auto root = parsedTop();

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(valueAt(root, "a/x"), QString("X"));
}

void tst_LinkedDirectories::directoryThatCannotBeListedGivesNoPlace()
{
    makeFolder("base/top/closed/sub");
    writeFile("base/top/closed/sub/x.config.json", leaf("X"));
    makeLink("base/top/a", "closed/sub");
    QVERIFY(::chmod(".", 0755) == 0 && ::chmod("base/top/closed", 0711) == 0);
    ChildProcess child([](const ChildSide & /*side*/) {
        // Whom the mode is meant for; the tests may run as root.
        if (::geteuid() == 0 && ::setuid(65534) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        return QFileInfo("base/top/closed").isReadable() ? ChildProcess::sm_cannotTry
               : valueAt(parsedTop(), "a/x") == "X"      ? 0
                                                         : 1;
    });

    const int exitCode = child.waitForExit();

    if (exitCode == ChildProcess::sm_cannotTry) {
        QSKIP("needs a user for whom permissions count");
    }
    QCOMPARE(exitCode, 0);
}

void tst_LinkedDirectories::walksThatFollowEachOtherAreTheirOwn()
{
    makeFolder("base/top/real");
    writeFile("base/top/real/x.config.json", leaf("X"));
    const auto first = parsedTop();
    LogCapture log;

    const auto second = parsedTop();

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(valueAt(first, "real/x"), QString("X"));
    QCOMPARE(valueAt(second, "real/x"), QString("X"));
}

void tst_LinkedDirectories::directoriesThatLinkToEachOtherAreParsedOnce()
{
    makeLinkedToEachOther("base/top", "v.config.json");
    LogCapture log;

    const auto root = parsedTop();

    const QList<LogLine> lines = log.take();
    QCOMPARE(countOf(lines, "Directory has another place in the tree and is passed over:"),
             manyDirectories * (manyDirectories - 1));
    QCOMPARE(lines.size(), manyDirectories * (manyDirectories - 1));
    QCOMPARE(root->getNumberOfChilds(), manyDirectories);
    for (int number = 1; number <= manyDirectories; ++number) {
        QCOMPARE(childNames(root->getLeaf(numbered(number))), QStringList{"v"});
    }
}

void tst_LinkedDirectories::directoriesOutsideThatLinkToEachOtherAreParsedOnce()
{
    makeLinkedToEachOther("outside", "v.config.json");
    makeLink("base/top/link", "../../outside/d1");
    Base::ListElements leaves;
    LogCapture log;

    const auto root = parsedTop();

    root->collectElements(leaves, false);
    QCOMPARE(leaves.size(), manyDirectories);
}

void tst_LinkedDirectories::directoriesThatLinkToEachOtherAreAskedOnce()
{
    makeLinkedToEachOther("base/top", "v.process.json");
    bool doubleBuffer = false;
    int size = 0;
    QString key;
    LogCapture log;

    QVERIFY(Access::getSharedMemoryInfoFromDir(QFileInfo("base/top"), doubleBuffer, size, key));

    QCOMPARE(log.take().size(), manyDirectories * (manyDirectories - 1));
    QCOMPARE(key, QString("k"));
}

void tst_LinkedDirectories::directoriesThatLinkToEachOtherAreWrittenOnce()
{
    makeLinkedToEachOther("base/top", "v.config.json");
    for (int number = 1; number <= manyDirectories; ++number) {
        writeFile("base/top/" + numbered(number) + "/v.config.json", stampable("V"));
    }
    LogCapture log;
    const auto root = parsedTop();
    const QList<LogLine> parsing = log.take();

    QVERIFY(write(root));

    QCOMPARE(log.take(), parsing);
    QStringList expected;
    for (int number = 1; number <= manyDirectories; ++number) {
        expected.append("module|object|top/" + numbered(number) + "/v");
    }
    QCOMPARE(recordedInstances(), expected);
}

QTEST_GUILESS_MAIN(tst_LinkedDirectories)

#include "tst_LinkedDirectories.moc"
