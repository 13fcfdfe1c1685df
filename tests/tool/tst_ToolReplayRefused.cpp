#include "RecordedPlant.h"
#include "ToolFolder.h"

#include <QtTest>

#include <memory>

namespace {

QStringList into(const QString &path, const QString &file, const QStringList &options = {})
{
    return QStringList{QStringLiteral("replay"), path, QStringLiteral("--into"), file} + options;
}

} // namespace

/// `tessel replay`: what it may not read or write, and what goes away meanwhile.
class tst_ToolReplayRefused : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void descriptionThatIsNotThereIsNotFound();
    void descriptionThatDoesNotParseIsRefused();
    void recordingWithoutPermissionIsRefused();
    void regionWithoutPermissionIsRefused();
    void regionThatIsRemovedEndsIt();
};

void tst_ToolReplayRefused::descriptionThatIsNotThereIsNotFound()
{
    const ReplayedPlant recorded;
    QVERIFY(recorded.isReady);
    const QString typo =
        QString(recorded.plant.file).replace(QLatin1String(".json"), QLatin1String(".jsno"));

    const ToolResult result = runTool(into(recorded.path(), typo));

    QCOMPARE(result.error, QStringLiteral("tessel: %1: no such file\n").arg(typo));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolReplayRefused::descriptionThatDoesNotParseIsRefused()
{
    const ReplayedPlant recorded;
    const QString file = recorded.path(QStringLiteral("broken.process.json"));
    QFile broken(file);
    QVERIFY(broken.open(QIODevice::WriteOnly) && broken.write("{") == 1);
    broken.close();

    const ToolResult result = runTool(into(recorded.path(), file));

    QVERIFY2(result.error.startsWith(QStringLiteral("tessel: %1: ").arg(file)),
             qPrintable(result.error));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolReplayRefused::recordingWithoutPermissionIsRefused()
{
    const FormerPlant former;
    QVERIFY(former.isReady);
    const NarrowPermissions narrow(former.path(), QFile::WriteOwner);
    if (!makePermissionsCount()) {
        QSKIP("The system does not let this process give up its rights");
    }

    const ToolResult result = runTool({QStringLiteral("replay"), former.path()});

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: no permission to read it\n").arg(former.path()));
    QCOMPARE(result.exitCode, 4);
    QVERIFY(!QFile::exists(QStringLiteral("/dev/shm/") + former.plant.segment().name()));
}

void tst_ToolReplayRefused::regionWithoutPermissionIsRefused()
{
    const ReplayedPlant recorded;
    QVERIFY(recorded.isReady);
    const NarrowPermissions narrow(QStringLiteral("/dev/shm/") + recorded.plant.segment().name(),
                                   QFile::ExeOwner);
    if (!makePermissionsCount()) {
        QSKIP("The system does not let this process give up its rights");
    }

    const ToolResult result = runTool(into(recorded.path(), recorded.plant.file));

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: cannot attach to region '%2': Permission denied\n")
                 .arg(recorded.plant.file, recorded.plant.key()));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 4);
}

void tst_ToolReplayRefused::regionThatIsRemovedEndsIt()
{
    const FormerPlant former;
    QVERIFY(former.isReady);
    const LogCapture log;
    auto region = std::make_unique<HeldRegion>(former.plant.file);
    ToolProcess tool(into(former.path(), former.plant.file, {QStringLiteral("--speed=0.001")}));
    QVERIFY(tool.nextLine().startsWith(QStringLiteral("replaying into ")));

    region.reset();

    const ToolResult result = tool.finish();
    QVERIFY2(result.error.startsWith(QStringLiteral("tessel: note: replayed ")),
             qPrintable(result.error));
    QVERIFY2(result.error.endsWith(
                 QStringLiteral("tessel: %1: the region '%2' has gone, its creator has ended\n")
                     .arg(former.plant.file, former.plant.key())),
             qPrintable(result.error));
    QCOMPARE(result.exitCode, 3);
}

QTEST_GUILESS_MAIN(tst_ToolReplayRefused)
#include "tst_ToolReplayRefused.moc"
