#include "DeviceConfiguration.h"
#include "ToolFolder.h"
#include "support/ChildProcess.h"
#include "support/ResourceLimit.h"

#include <QElapsedTimer>
#include <QTemporaryDir>

#include <csignal>

#include <sys/stat.h>

namespace {

const QString channelFile = QStringLiteral("inputs/channel1.config.json");
constexpr uid_t ordinaryUser = 65534;

bool writeText(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

/// False where this process may not.
bool give(const QString &path, uid_t user, mode_t mode)
{
    const QByteArray name = QFile::encodeName(path);
    return ::chown(name.constData(), user, user) == 0 && ::chmod(name.constData(), mode) == 0;
}

} // namespace

/// Which file `tessel config set` writes, and what becomes of it when the writing fails, is cut off
/// or is not allowed.
class tst_ToolConfigSetFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_canLosePermissions = makePermissionsCount(); }
    void init() { m_device.reset(new DeviceConfiguration); }
    void cleanup() { m_device.reset(); }

    void fileIsWrittenByItsOwnUrls();
    void fileBesideAFolderOfItsNameIsWritten();
    void linkedFileStaysALink();
    void fileWithoutStampsIsWrittenWithANote();
    void writeThatFailsLeavesTheFormerText_data();
    void writeThatFailsLeavesTheFormerText();
    void killedToolLeavesAWholeFile();
    void fileThatMayNotBeWrittenIsRefused();
    void folderThatMayNotBeWrittenIsRefused();
    void fileThatCannotBeReplacedKeepsOneName_data();
    void fileThatCannotBeReplacedKeepsOneName();

private:
    bool m_canLosePermissions = false;
    QScopedPointer<DeviceConfiguration> m_device;
};

void tst_ToolConfigSetFiles::fileIsWrittenByItsOwnUrls()
{
    const auto former = m_device->directory().snapshot();

    const ToolResult result = DeviceConfiguration::runOn("set", m_device->path(channelFile),
                                                         {"range/lower", "-25"});

    QCOMPARE(result.error, QString());
    QVERIFY2(
        result.output.startsWith("range/lower: -20 -> -25\nstamped channel1: modifiedBy Device, "),
        qPrintable(result.output));
    QCOMPARE(m_device->changedSince(former), QStringList{channelFile});
    QCOMPARE(m_device->valueAt("inputs/channel1/range/lower"), QString("-25"));
}

void tst_ToolConfigSetFiles::fileBesideAFolderOfItsNameIsWritten()
{
    QVERIFY(m_device->directory().write("inputs.config.json",
                                        m_device->directory().read("device.config.json")));
    const auto former = m_device->directory().snapshot();

    const ToolResult result = DeviceConfiguration::runOn(
        "set", m_device->path("inputs.config.json"), {"tag", "PT-7"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(m_device->changedSince(former), QStringList{"inputs.config.json"});
}

void tst_ToolConfigSetFiles::linkedFileStaysALink()
{
    const QString link = m_device->path("inputs/channel1.config.json");
    const QString target = m_device->path("target.json");
    QVERIFY(QFile::rename(link, target) && QFile::link("../target.json", link));

    QCOMPARE(m_device->run("set", {"inputs/channel1/filter", "2"}).exitCode, 0);

    QVERIFY(QFileInfo(link).isSymLink());
    QVERIFY(m_device->directory().read("target.json").contains("Device"));
}

void tst_ToolConfigSetFiles::fileWithoutStampsIsWrittenWithANote()
{
    QVERIFY(m_device->directory().write(
        "plain.config.json", R"({"type":"treenode","value":{"a":{"type":"int32","value":1}}})"));

    const ToolResult result = m_device->run("set", {"plain/a", "2"});

    QCOMPARE(result.output, QString("plain/a: 1 -> 2\n"));
    QCOMPARE(result.error, QStringLiteral("tessel: note: %1 has no place for a stamp\n")
                               .arg(m_device->path("plain.config.json")));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(m_device->valueAt("plain/a"), QString("2"));
}

void tst_ToolConfigSetFiles::writeThatFailsLeavesTheFormerText_data()
{
    QTest::addColumn<int>("room");
    QTest::addColumn<QString>("reason");

    QTest::newRow("cut off") << 300 << "written whole; the former text was put back (";
    QTest::newRow("not begun") << 0 << "written and is as it was (";
}

void tst_ToolConfigSetFiles::writeThatFailsLeavesTheFormerText()
{
    QFETCH(int, room);
    QFETCH(QString, reason);
    const auto former = m_device->directory().snapshot();
    ToolResult result{};

    {
        const ResourceLimit smallFiles(RLIMIT_FSIZE, static_cast<rlim_t>(room));
        result = m_device->run("set", {"inputs/channel1/filter", "2"});
    }

    const QString line =
        QStringLiteral("tessel: %1: could not be %2").arg(m_device->path(channelFile), reason);
    QVERIFY2(result.error.startsWith(line), qPrintable(result.error));
    QCOMPARE(result.error.count('\n'), 1);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 9);
    // The very file that was there, and nothing beside it.
    QCOMPARE(m_device->changedSince(former), QStringList());
}

void tst_ToolConfigSetFiles::killedToolLeavesAWholeFile()
{
    constexpr int kills = 40;
    auto former = m_device->directory().snapshot();
    former.remove(channelFile);
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(m_device->run("set", {"inputs/channel1/filter", "0"}).exitCode, 0);
    // As long as an undisturbed run takes, and some more: the kills are spread over all of it.
    const qint64 longest = clock.nsecsElapsed() * 5 / 4;
    int stands = 0;

    for (int i = 1; i <= kills; ++i) {
        clock.start();
        ToolProcess tool(
            {"config", "set", m_device->path(), "inputs/channel1/filter", QString::number(i)});
        while (clock.nsecsElapsed() < longest * i / kills) { }
        tool.signal(SIGKILL);
        tool.finish();
        const QJsonObject json = m_device->directory().json(channelFile);
        const int value = Description::at(json, "filter").value("value").toInt(-1);
        QVERIFY2(value == stands || value == i, qPrintable(QString::number(value)));
        stands = value;
    }

    const auto now = m_device->directory().snapshot();
    for (auto file = former.cbegin(); file != former.cend(); ++file) {
        QCOMPARE(now.value(file.key()), file.value());
    }
    QCOMPARE(m_device->run("set", {"inputs/channel1/filter", "50"}).exitCode, 0);
    QCOMPARE(m_device->valueAt("inputs/channel1/filter"), QString("50"));
}

void tst_ToolConfigSetFiles::fileThatMayNotBeWrittenIsRefused()
{
    if (!m_canLosePermissions) {
        QSKIP("everything may be written here");
    }
    const auto former = m_device->directory().snapshot();
    const QString path = m_device->path(channelFile);
    const NarrowPermissions narrow(path, QFile::ReadOwner);

    VERIFY_REFUSED(m_device->run("set", {"inputs/channel1/filter", "2"}), 4,
                   path + ": no permission to write the file or its folder");
    QCOMPARE(m_device->changedSince(former), QStringList());
    // What stands there already needs no permission.
    QCOMPARE(m_device->run("set", {"inputs/channel1/filter", "0.5"}).exitCode, 0);
}

void tst_ToolConfigSetFiles::folderThatMayNotBeWrittenIsRefused()
{
    if (!m_canLosePermissions) {
        QSKIP("everything may be written here");
    }
    const auto former = m_device->directory().snapshot();
    const NarrowPermissions narrow(m_device->path("inputs"), QFile::ReadOwner | QFile::ExeOwner);

    VERIFY_REFUSED(m_device->run("set", {"inputs/channel1/filter", "2"}), 4,
                   m_device->path(channelFile) + ": no permission to write the file or its folder");
    QCOMPARE(m_device->changedSince(former), QStringList());
}

void tst_ToolConfigSetFiles::fileThatCannotBeReplacedKeepsOneName_data()
{
    QTest::addColumn<uid_t>("owner");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("value");

    QTest::newRow("of somebody else") << uid_t{1234} << 9 << "1\n";
    QTest::newRow("of the user") << uid_t{ordinaryUser} << 0 << "2\n";
}

void tst_ToolConfigSetFiles::fileThatCannotBeReplacedKeepsOneName()
{
    QFETCH(uid_t, owner);
    const QTemporaryDir folder;
    const QString path = folder.filePath("a.config.json");
    QVERIFY(writeText(path, R"({"type":"treenode","value":{"a":{"type":"int32","value":1}}})"));
    if (!give(path, owner, 0666) || !give(folder.path(), 0, 01777)) {
        QSKIP("needs root");
    }

    ChildProcess user([&path](const ChildSide &) {
        if (::setgid(ordinaryUser) != 0 || ::setuid(ordinaryUser) != 0
            || ::access(TESSEL_TOOL, X_OK) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        return runTool({"config", "set", path, "a", "2"}).exitCode;
    });
    const int exitCode = user.waitForExit();

    if (exitCode == ChildProcess::sm_cannotTry) {
        QSKIP("needs a tool that every user may run");
    }
    QTEST(exitCode, "exitCode");
    const auto all = QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot;
    QCOMPARE(QDir(folder.path()).entryList(all), QStringList("a.config.json"));
    QTEST(DeviceConfiguration::runOn("get", path, {"a"}).output, "value");
}

QTEST_GUILESS_MAIN(tst_ToolConfigSetFiles)
#include "tst_ToolConfigSetFiles.moc"
