#include "HeldRegion.h"
#include "ToolFolder.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <memory>

using Metadata = ToolDescription::Metadata;

/// Where `tessel snapshot` and `tessel layout --svg` write: one set of rules for both.
class tst_ToolResultFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void fileThatCannotBeWrittenIsRefused_data();
    void fileThatCannotBeWrittenIsRefused();
    void linkIsFollowed_data() { addCommands(); }
    void linkIsFollowed();
    void descriptionIsNotReplaced_data() { addCommands(); }
    void descriptionIsNotReplaced();
    void emptyNameIsWrongUse_data() { addCommands(); }
    void emptyNameIsWrongUse();
    void dryRunLeavesTheFormerFile_data() { addCommands(); }
    void dryRunLeavesTheFormerFile();
    void dryRunOfAPictureTellsItsSize();
    void dryRunOfALayoutWithoutAPictureIsWrongUse();

private:
    static void addCommands()
    {
        QTest::addColumn<QString>("command");
        QTest::newRow("snapshot") << "snapshot";
        QTest::newRow("layout") << "layout";
    }
    ToolResult run(const QString &command, const QString &target,
                   const QStringList &options = {}) const
    {
        const bool isSnapshot = command == QLatin1String("snapshot");
        return runTool(QStringList{command,
                                   isSnapshot ? QStringLiteral("-o") : QStringLiteral("--svg"),
                                   target}
                       + options + QStringList(m_file));
    }
    QString path(const char *name) const { return m_description->path(QLatin1String(name)); }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolResultFile::init()
{
    m_log = std::make_unique<LogCapture>();
    m_description = std::make_unique<ToolDescription>();
    m_description->add(QStringLiteral("level"), QStringLiteral("double"), Metadata::ErrorState, 8);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->publish(QStringLiteral("level"), validValue(1.0)));
}

void tst_ToolResultFile::cleanup()
{
    m_region.reset();
    m_description.reset();
    m_log.reset();
}

void tst_ToolResultFile::fileThatCannotBeWrittenIsRefused_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("isDryRun");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");
    const auto add = [](const char *name, const char *target, const char *reason, int exitCode) {
        for (const char *command : {"snapshot", "layout"}) {
            for (const bool isDryRun : {false, true}) {
                QTest::addRow("%s, %s%s", name, command, isDryRun ? ", dry run" : "")
                    << QString::fromLatin1(command) << isDryRun << QString::fromLatin1(target)
                    << QString::fromLatin1(reason) << exitCode;
            }
        }
    };
    add("no folder", "none/out", "no such folder", 3);
    add("file for a folder", "locked/out", "no such folder", 3);
    add("link into no folder", "lost", "no such folder", 3);
    add("folder", "closed", "is no regular file", 9);
    add("link in a circle", "circle", "is no regular file", 9);
    add("folder without permission", "closed/out", "no permission to write it", 4);
    add("folder that may not be entered", "shut/folder/out", "no permission to write it", 4);
    add("link into a folder without permission", "barred", "no permission to write it", 4);
    add("file without permission", "locked", "no permission to write it", 4);
}

void tst_ToolResultFile::fileThatCannotBeWrittenIsRefused()
{
    QFETCH(QString, command);
    QFETCH(bool, isDryRun);
    QFETCH(QString, target);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    if (!makePermissionsCount()) {
        QSKIP("The system does not take root's permissions away.");
    }
    m_description->write(QStringLiteral("locked"), "former");
    QVERIFY(QDir().mkpath(path("closed")) && QDir().mkpath(path("shut/folder")));
    QVERIFY(QFile::link(path("none/out"), path("lost")));
    QVERIFY(QFile::link(path("circle"), path("circle")));
    QVERIFY(QFile::link(path("closed/out"), path("barred")));
    const NarrowPermissions locked(path("locked"), QFile::ReadOwner);
    const NarrowPermissions closed(path("closed"), QFile::ReadOwner | QFile::ExeOwner);
    const NarrowPermissions shut(path("shut"), QFile::ReadOwner | QFile::WriteOwner);
    const QString out = m_description->path(target);

    const ToolResult result = run(
        command, out, isDryRun ? QStringList(QStringLiteral("--dry-run")) : QStringList());

    QCOMPARE(result.error, QStringLiteral("tessel: %1: %2\n").arg(out, reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolResultFile::linkIsFollowed()
{
    QFETCH(QString, command);
    if (!makePermissionsCount()) {
        QSKIP("The system does not take root's permissions away.");
    }
    QVERIFY(QDir().mkpath(path("closed")));
    QVERIFY(QFile::link(path("out"), path("closed/link")));
    const NarrowPermissions closed(path("closed"), QFile::ReadOwner | QFile::ExeOwner);

    const ToolResult result = run(command, path("closed/link"));

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY(QFileInfo(path("out")).size() > 0);
    QVERIFY(QFileInfo(path("closed/link")).isSymLink());
}

void tst_ToolResultFile::descriptionIsNotReplaced()
{
    QFETCH(QString, command);
    QFile description(m_file);
    QVERIFY(description.open(QIODevice::ReadOnly));
    const QByteArray before = description.readAll();
    description.close();
    const QString link = path("link.json");
    QVERIFY(QFile::link(m_file, link));
    const QString other = path("other.config.json");

    for (const QString &target : {m_file, link, other}) {
        const ToolResult result = run(command, target);

        QCOMPARE(result.error, QStringLiteral("tessel: %1: is the name of a description; name "
                                              "another file for the result\n")
                                   .arg(target));
        QCOMPARE(result.exitCode, 2);
    }
    QVERIFY(description.open(QIODevice::ReadOnly));
    QCOMPARE(description.readAll(), before);
    QVERIFY(!QFile::exists(other));
}

void tst_ToolResultFile::emptyNameIsWrongUse()
{
    QFETCH(QString, command);

    const ToolResult result = run(command, QString());

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: %2 is empty; name a file, or - for standard output; see "
                            "'tessel %1 --help'\n")
                 .arg(command, command == QLatin1String("snapshot") ? QStringLiteral("--output")
                                                                    : QStringLiteral("--svg")));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolResultFile::dryRunLeavesTheFormerFile()
{
    QFETCH(QString, command);
    const QString former = m_description->write(QStringLiteral("out"), "former");

    const ToolResult result = run(command, former, {QStringLiteral("--dry-run")});

    QVERIFY2(result.output.endsWith(QStringLiteral(", not written to %1\n").arg(former)),
             qPrintable(result.output + result.error));
    QCOMPARE(result.exitCode, 0);
    QFile file(former);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("former"));
}

void tst_ToolResultFile::dryRunOfAPictureTellsItsSize()
{
    const QString picture = run(QStringLiteral("layout"), QStringLiteral("-")).output;

    const ToolResult result = run(QStringLiteral("layout"), QStringLiteral("-"),
                                  {QStringLiteral("--dry-run")});

    QVERIFY(!picture.isEmpty());
    QCOMPARE(result.output,
             QStringLiteral("%1 bytes, not written to -\n").arg(picture.toUtf8().size()));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolResultFile::dryRunOfALayoutWithoutAPictureIsWrongUse()
{
    const ToolResult result = runTool(
        {QStringLiteral("layout"), QStringLiteral("--dry-run"), m_file});

    QCOMPARE(result.error, QStringLiteral("tessel: layout: --dry-run goes with --svg; see 'tessel "
                                          "layout --help'\n"));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

QTEST_GUILESS_MAIN(tst_ToolResultFile)
#include "tst_ToolResultFile.moc"
