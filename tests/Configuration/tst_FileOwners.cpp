#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/StampedDescriptions.h"
#include "support/LogCapture.h"

#include <unistd.h>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;

constexpr uid_t serviceUser = 1234;
constexpr gid_t serviceGroup = 1235;
constexpr uid_t otherUser = 65534;

struct stat statusOf(const QString &path)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0) {
        qFatal("cannot look at %s", qPrintable(path));
    }
    return status;
}

/// False where this process may not.
bool give(const QString &path, uid_t user, gid_t group, mode_t mode)
{
    const QByteArray name = QFile::encodeName(path);
    return ::chown(name.constData(), user, group) == 0 && ::chmod(name.constData(), mode) == 0;
}

/// While it lives, the process has the rights of an ordinary user of one group.
class OrdinaryUser
{
public:
    OrdinaryUser(uid_t user, gid_t group)
    {
        m_isActive = ::setegid(group) == 0 && ::seteuid(user) == 0;
    }
    ~OrdinaryUser()
    {
        if (::seteuid(0) != 0 || ::setegid(0) != 0) {
            qFatal("cannot become root again");
        }
    }

    OrdinaryUser(const OrdinaryUser &) = delete;
    OrdinaryUser &operator=(const OrdinaryUser &) = delete;

    bool isActive() const { return m_isActive; }

private:
    bool m_isActive = false;
};

bool frame(const QString &path)
{
    return ConfigurationAndProcessDataParser().frameToFile(plainLeaf("new"), path);
}

} // namespace

/// Whom a file belongs to after it was replaced. Only root can give files away.
class tst_FileOwners : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void ownerGroupAndModeStay_data();
    void ownerGroupAndModeStay();
    void ownerOfTheTargetOfALinkStays();
    void writtenDirectoryKeepsTheOwners();
    void userWhoMayNotGiveFilesAwayWritesAllTheSame();
    void userKeepsTheGroupThatIsOneOfTheirOwn();
    void modeThatRaisesRightsIsNotHandedToAnother();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_FileOwners::init()
{
    m_directory.reset(new WorkingDirectory);
    writeFile("a.config.json", "former");
    if (!give("a.config.json", serviceUser, serviceGroup, 0640)) {
        QSKIP("needs a user who may give files away");
    }
}

void tst_FileOwners::cleanup()
{
    m_directory.reset();
}

void tst_FileOwners::ownerGroupAndModeStay_data()
{
    QTest::addColumn<int>("mode");

    QTest::newRow("ordinary") << 0640;
    QTest::newRow("for all") << 0666;
    QTest::newRow("for the owner") << 0600;
    QTest::newRow("group of the owner on execution") << 02750;
}

void tst_FileOwners::ownerGroupAndModeStay()
{
    QFETCH(int, mode);
    QVERIFY(give("a.config.json", serviceUser, serviceGroup, mode_t(mode)));
    const auto former = statusOf("a.config.json");

    QVERIFY(frame("a.config.json"));

    const auto status = statusOf("a.config.json");
    QVERIFY(status.st_ino != former.st_ino);
    QCOMPARE(status.st_uid, serviceUser);
    QCOMPARE(status.st_gid, serviceGroup);
    QCOMPARE(int(status.st_mode & 07777U), mode);
}

void tst_FileOwners::ownerOfTheTargetOfALinkStays()
{
    makeLink("b.config.json", "a.config.json");

    QVERIFY(frame("b.config.json"));

    QVERIFY(QFileInfo("b.config.json").isSymLink());
    QCOMPARE(statusOf("a.config.json").st_uid, serviceUser);
    QCOMPARE(statusOf("a.config.json").st_gid, serviceGroup);
}

void tst_FileOwners::writtenDirectoryKeepsTheOwners()
{
    writeFile("base/top/x.config.json", stampable("X"));
    QVERIFY(give("base/top/x.config.json", serviceUser, serviceGroup, 0660));
    const auto root = Access::getParsedConfigurationProcessDescription(QDir("base"), "top", false);

    QVERIFY(Access::setParsedConfigurationProcessDescription(QDir("base"), "module", "object",
                                                             "top", root, false));

    QCOMPARE(statusOf("base/top/x.config.json").st_uid, serviceUser);
    QCOMPARE(statusOf("base/top/x.config.json").st_gid, serviceGroup);
    QCOMPARE(int(statusOf("base/top/x.config.json").st_mode & 07777U), 0660);
}

void tst_FileOwners::userWhoMayNotGiveFilesAwayWritesAllTheSame()
{
    QVERIFY(give(".", 0, 0, 0777));
    QVERIFY(give("a.config.json", serviceUser, serviceGroup, 0666));
    LogCapture log;
    {
        const OrdinaryUser user(otherUser, otherUser);
        QVERIFY(user.isActive());

        QVERIFY(frame("a.config.json"));
    }

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(statusOf("a.config.json").st_uid, otherUser);
    QCOMPARE(int(statusOf("a.config.json").st_mode & 07777U), 0666);
    QCOMPARE(readFile("a.config.json"), QByteArray(R"({"type":"string","value":"new"})"));
}

void tst_FileOwners::userKeepsTheGroupThatIsOneOfTheirOwn()
{
    // A directory that hands its group to new files, as a shared one does.
    QVERIFY(give(".", 0, otherUser, 02777));
    QVERIFY(give("a.config.json", serviceUser, serviceGroup, 0660));
    {
        const OrdinaryUser user(otherUser, serviceGroup);
        QVERIFY(user.isActive());

        QVERIFY(frame("a.config.json"));
    }

    QCOMPARE(statusOf("a.config.json").st_uid, otherUser);
    QCOMPARE(statusOf("a.config.json").st_gid, serviceGroup);
    QCOMPARE(int(statusOf("a.config.json").st_mode & 07777U), 0660);
}

void tst_FileOwners::modeThatRaisesRightsIsNotHandedToAnother()
{
    QVERIFY(give(".", 0, 0, 0777));
    QVERIFY(give("a.config.json", serviceUser, serviceGroup, 06777));
    {
        const OrdinaryUser user(otherUser, otherUser);
        QVERIFY(user.isActive());

        QVERIFY(frame("a.config.json"));
    }

    QCOMPARE(int(statusOf("a.config.json").st_mode & 07777U), 0777);
}

QTEST_GUILESS_MAIN(tst_FileOwners)

#include "tst_FileOwners.moc"
