#include "DeviceConfiguration.h"
#include "ToolFolder.h"
#include "support/ResourceLimit.h"

#include <QElapsedTimer>

#include <csignal>

namespace {

const QString channelFile = QStringLiteral("inputs/channel1.config.json");

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

QTEST_GUILESS_MAIN(tst_ToolConfigSetFiles)
#include "tst_ToolConfigSetFiles.moc"
