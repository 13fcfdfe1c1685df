#include "HeldRegion.h"
#include "ToolProcess.h"

#include <QtTest>

namespace {

QStringList environmentWith(const QString &path)
{
    return {QStringLiteral("TESSEL_DIR=") + path};
}

} // namespace

/// TESSEL_DIR names the description where it is left out.
class tst_ToolDefaultDescription : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void standsForAFileThatIsLeftOut();
    void standsForTheOnlyArgument();
    void givesWayToAPath();
    void fileThatDoesNotExistIsStillNamed();
    void standsBehindTheActionOfConfig();
    void isNotAskedByWhatTakesNoDescription();
    void emptyOneIsNone();
    void wrongOneIsNamed();
    void urlsAreCompletedBesideFiles();
    void urlsAreCompletedBehindOthers();
    void wrongOneLeavesTheFilesToComplete();

private:
    QScopedPointer<ToolDescription> m_description;
    QString m_file;
};

void tst_ToolDefaultDescription::init()
{
    m_description.reset(new ToolDescription);
    m_description->add(QStringLiteral("pump/speed"), QStringLiteral("int8"),
                       ToolDescription::Metadata::ErrorState, 1);
    m_description->add(QStringLiteral("pump/power"), QStringLiteral("int8"),
                       ToolDescription::Metadata::ErrorState, 1);
    m_file = m_description->write();
}

void tst_ToolDefaultDescription::standsForAFileThatIsLeftOut()
{
    HeldRegion region(m_file);
    QVERIFY(region.isValid());

    const ToolResult written = runTool(
        {QStringLiteral("set"), QStringLiteral("pump/speed"), QStringLiteral("-7")},
        environmentWith(m_file));
    const ToolResult read = runTool(
        {QStringLiteral("get"), QStringLiteral("-t"), QStringLiteral("pump/speed")},
        environmentWith(m_file));

    QCOMPARE(written.error, QString());
    QCOMPARE(written.exitCode, 0);
    QCOMPARE(read.output, QStringLiteral("-7\n"));
    QCOMPARE(read.exitCode, 0);
}

void tst_ToolDefaultDescription::standsForTheOnlyArgument()
{
    const ToolResult result = runTool({QStringLiteral("get")}, environmentWith(m_file));

    QCOMPARE(result.exitCode, 3);
    QVERIFY2(result.error.startsWith(QStringLiteral("tessel: %1: no region").arg(m_file)),
             qPrintable(result.error));
}

void tst_ToolDefaultDescription::givesWayToAPath()
{
    const HeldRegion region(m_file);

    const ToolResult result = runTool({QStringLiteral("get"), m_file, QStringLiteral("pump/speed")},
                                      environmentWith(QStringLiteral("/nowhere.process.json")));

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDefaultDescription::fileThatDoesNotExistIsStillNamed()
{
    const ToolResult result = runTool({QStringLiteral("get"), QStringLiteral("typo.process.json")},
                                      environmentWith(m_file));

    QCOMPARE(result.error, QStringLiteral("tessel: typo.process.json: no such file\n"));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolDefaultDescription::standsBehindTheActionOfConfig()
{
    const QString file = m_description->write(
        QStringLiteral("pump.config.json"),
        R"({"type": "treenode", "value": {"limit": {"type": "int32", "value": 12}}})");

    const ToolResult result = runTool(
        {QStringLiteral("config"), QStringLiteral("get"), QStringLiteral("limit")},
        environmentWith(file));

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QStringLiteral("12\n"));
}

void tst_ToolDefaultDescription::isNotAskedByWhatTakesNoDescription()
{
    const ToolResult result = runTool({QStringLiteral("build")}, environmentWith(m_file));

    QCOMPARE(result.error,
             QStringLiteral("tessel: build: DIR is missing; see 'tessel build --help'\n"));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolDefaultDescription::emptyOneIsNone()
{
    const ToolResult result = runTool({QStringLiteral("get")}, environmentWith({}));

    QCOMPARE(result.error,
             QStringLiteral("tessel: get: FILE is missing; see 'tessel get --help'\n"));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolDefaultDescription::wrongOneIsNamed()
{
    const ToolResult result = runTool({QStringLiteral("get"), QStringLiteral("pump")},
                                      environmentWith(QStringLiteral("nowhere.process.json")));

    QCOMPARE(result.error, QStringLiteral("tessel: nowhere.process.json: no such file\n"));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolDefaultDescription::urlsAreCompletedBesideFiles()
{
    const ToolResult result = runTool({QStringLiteral("complete"), QStringLiteral("--"),
                                       QStringLiteral("get"), QStringLiteral("pu")},
                                      environmentWith(m_file));

    QCOMPARE(result.output,
             QStringLiteral("pump/speed\tint8\npump/power\tint8\n\t.process.json\n"));
}

void tst_ToolDefaultDescription::urlsAreCompletedBehindOthers()
{
    const ToolResult result = runTool({QStringLiteral("complete"), QStringLiteral("--"),
                                       QStringLiteral("get"), QStringLiteral("pump"),
                                       QStringLiteral("pump/s")},
                                      environmentWith(m_file));

    QCOMPARE(result.output, QStringLiteral("pump/speed\tint8\n"));
}

void tst_ToolDefaultDescription::wrongOneLeavesTheFilesToComplete()
{
    const ToolResult result = runTool({QStringLiteral("complete"), QStringLiteral("--"),
                                       QStringLiteral("get"), QStringLiteral("pu")},
                                      environmentWith(QStringLiteral("/nowhere.process.json")));

    QCOMPARE(result.output, QStringLiteral("\t.process.json\n"));
    QCOMPARE(result.exitCode, 0);
}

QTEST_GUILESS_MAIN(tst_ToolDefaultDescription)
#include "tst_ToolDefaultDescription.moc"
