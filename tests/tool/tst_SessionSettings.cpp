#include "checks/SessionSettings.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

/// A machine's files, below a folder of the test's own.
class FakeRoot
{
public:
    QString path() const { return m_folder.path(); }

    bool write(const QString &name, const QByteArray &text) const
    {
        QFile file(path() + name);
        return QDir().mkpath(QFileInfo(file).path()) && file.open(QIODevice::WriteOnly)
               && file.write(text) == text.size();
    }

private:
    QTemporaryDir m_folder;
};

} // namespace

/// What the files of the machine say about the end of sessions.
class tst_SessionSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void removalIsOnWithoutFiles();
    void lastFileThatSetsItCounts_data();
    void lastFileThatSetsItCounts();
    void fileThatCannotBeReadLeavesItOpen();
    void lastSystemUserIsThatOfTheFile_data();
    void lastSystemUserIsThatOfTheFile();
};

void tst_SessionSettings::removalIsOnWithoutFiles()
{
    const FakeRoot root;

    const auto removed = SessionSettings::readRemovedIpc(root.path());

    QVERIFY(removed && removed->isOn);
    QCOMPARE(removed->file, root.path() + QStringLiteral("/etc/systemd/logind.conf"));
}

void tst_SessionSettings::lastFileThatSetsItCounts_data()
{
    using Files = QVector<QPair<QString, QByteArray>>;
    QTest::addColumn<Files>("files");
    QTest::addColumn<bool>("isOn");
    QTest::addColumn<QString>("file");
    const QString etc = QStringLiteral("/etc/systemd/logind.conf");
    const QString dropIn = QStringLiteral("/etc/systemd/logind.conf.d/50-device.conf");
    const QString ofSystem = QStringLiteral("/usr/lib/systemd/logind.conf.d/50-device.conf");
    const QByteArray on = "[Login]\nRemoveIPC=yes\n";
    const QByteArray off = "[Login]\nRemoveIPC=no\n";
    const auto row = [](const char *name, const Files &files, bool isOn, const QString &file) {
        QTest::newRow(name) << files << isOn << file;
    };
    row("main file", {{etc, off}}, false, etc);
    row("comment shows what is without", {{etc, "[Login]\n#RemoveIPC=no\n"}}, false, etc);
    row("comment behind a setting", {{etc, "[Login]\nRemoveIPC=yes\n#RemoveIPC=no\n"}}, true, etc);
    row("drop-in behind the main file", {{etc, on}, {dropIn, off}}, false, dropIn);
    row("drop-ins by name",
        {{dropIn, off}, {QStringLiteral("/run/systemd/logind.conf.d/60-later.conf"), on}}, true,
        QStringLiteral("/run/systemd/logind.conf.d/60-later.conf"));
    row("administrator before the system", {{ofSystem, on}, {dropIn, off}}, false, dropIn);
    row("empty file of the administrator", {{ofSystem, off}, {dropIn, ""}}, true, etc);
    row("main file of the system", {{QStringLiteral("/usr/lib/systemd/logind.conf"), off}}, false,
        QStringLiteral("/usr/lib/systemd/logind.conf"));
    row("other section", {{etc, "[Sleep]\nRemoveIPC=no\n[Login]\n"}}, true, etc);
    row("no truth value", {{etc, "[Login]\nRemoveIPC=never\n"}}, true, etc);
    row("blanks and another word", {{etc, " [Login]\n  RemoveIPC = OFF \n"}}, false, etc);
    row("last line", {{etc, "[Login]\nRemoveIPC=no\nRemoveIPC=1"}}, true, etc);
    row("other ending", {{QStringLiteral("/etc/systemd/logind.conf.d/50.conf.old"), off}}, true,
        etc);
}

void tst_SessionSettings::lastFileThatSetsItCounts()
{
    using Files = QVector<QPair<QString, QByteArray>>;
    QFETCH(Files, files);
    QFETCH(bool, isOn);
    QFETCH(QString, file);
    const FakeRoot root;
    for (const auto &written : files) {
        QVERIFY(root.write(written.first, written.second));
    }

    const auto removed = SessionSettings::readRemovedIpc(root.path());

    QVERIFY(removed);
    QCOMPARE(removed->isOn, isOn);
    QCOMPARE(removed->file, root.path() + file);
}

void tst_SessionSettings::fileThatCannotBeReadLeavesItOpen()
{
    const FakeRoot root;
    QVERIFY(root.write(QStringLiteral("/etc/systemd/logind.conf"), "[Login]\nRemoveIPC=no\n"));
    // A link that leads round in a circle, which not even root can read.
    const QString folder = root.path() + QStringLiteral("/run/systemd/logind.conf.d");
    QVERIFY(QDir().mkpath(folder));
    const QByteArray link = QFile::encodeName(folder + QStringLiteral("/50.conf"));
    QCOMPARE(::symlink(link.constData(), link.constData()), 0);

    QVERIFY(!SessionSettings::readRemovedIpc(root.path()));
}

void tst_SessionSettings::lastSystemUserIsThatOfTheFile_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<uint>("last");
    QTest::newRow("none") << QByteArray("SYS_UID_MIN 100\n") << 999U;
    QTest::newRow("told") << QByteArray("# SYS_UID_MAX 1\n SYS_UID_MAX\t\t499\n") << 499U;
    QTest::newRow("no number") << QByteArray("SYS_UID_MAX many\n") << 999U;
}

void tst_SessionSettings::lastSystemUserIsThatOfTheFile()
{
    QFETCH(QByteArray, text);
    QFETCH(uint, last);
    const FakeRoot root;
    QCOMPARE(SessionSettings::readLastSystemUser(root.path()), 999U);
    QVERIFY(root.write(QStringLiteral("/etc/login.defs"), text));

    QCOMPARE(SessionSettings::readLastSystemUser(root.path()), last);
}

QTEST_GUILESS_MAIN(tst_SessionSettings)
#include "tst_SessionSettings.moc"
