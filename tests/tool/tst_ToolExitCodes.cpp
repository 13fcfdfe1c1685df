#include "HeldRegion.h"
#include "ToolFolder.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"
#include "support/SegmentFile.h"

#include <QtTest>

#include <memory>
#include <vector>

using Metadata = ToolDescription::Metadata;

namespace {

/// A call of a subcommand: FILE stands for the description, FOLDER for where it lies with other files.
QStringList callOf(const QString &subcommand)
{
    static const QHash<QString, QStringList> calls{
        {QStringLiteral("get"), {QStringLiteral("FILE"), QStringLiteral("n/speed")}},
        {QStringLiteral("set"),
         {QStringLiteral("FILE"), QStringLiteral("n/speed"), QStringLiteral("1")}},
        {QStringLiteral("apply"), {QStringLiteral("FILE"), QStringLiteral("FOLDER/values.json")}},
        {QStringLiteral("watch"),
         {QStringLiteral("--count=1"), QStringLiteral("FILE"), QStringLiteral("n/speed")}},
        {QStringLiteral("expect"), {QStringLiteral("FILE"), QStringLiteral("n/speed >= 0")}},
        {QStringLiteral("snapshot"),
         {QStringLiteral("FILE"), QStringLiteral("n/speed"), QStringLiteral("-o"),
          QStringLiteral("FOLDER/taken.json")}},
        {QStringLiteral("compare"), {QStringLiteral("FILE"), QStringLiteral("FOLDER/kept.json")}},
        {QStringLiteral("stat"), {QStringLiteral("--for=1ms"), QStringLiteral("FILE")}},
        {QStringLiteral("trend"),
         {QStringLiteral("--for=1ms"), QStringLiteral("FILE"), QStringLiteral("n/speed")}},
        {QStringLiteral("explain"), {QStringLiteral("FILE"), QStringLiteral("n/speed")}},
        {QStringLiteral("layout"), {QStringLiteral("FILE")}},
        {QStringLiteral("diff"), {QStringLiteral("FILE"), QStringLiteral("FILE")}},
        {QStringLiteral("doctor"), {QStringLiteral("FILE")}},
    };
    return QStringList(subcommand) + calls.value(subcommand);
}

/// Those that read or write values of a region.
const QStringList ofValues{QStringLiteral("get"),    QStringLiteral("set"),
                           QStringLiteral("apply"),  QStringLiteral("watch"),
                           QStringLiteral("expect"), QStringLiteral("snapshot"),
                           QStringLiteral("compare")};
const QStringList ofRegions = ofValues
                              + QStringList{QStringLiteral("stat"), QStringLiteral("trend"),
                                            QStringLiteral("explain")};
const QStringList ofDescriptions = ofRegions
                                   + QStringList{QStringLiteral("layout"), QStringLiteral("diff"),
                                                 QStringLiteral("doctor")};

void addRows(const QStringList &subcommands)
{
    QTest::addColumn<QString>("subcommand");
    for (const auto &subcommand : subcommands) {
        QTest::newRow(qPrintable(subcommand)) << subcommand;
    }
}

} // namespace

/// The exit codes that subcommands have in common, each of them by each.
class tst_ToolExitCodes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void everyCallIsRight_data() { addRows(ofDescriptions); }
    void everyCallIsRight();
    void missingFileIsCode3_data() { addRows(ofDescriptions); }
    void missingFileIsCode3();
    void missingRegionIsCode3_data() { addRows(ofRegions); }
    void missingRegionIsCode3();
    void descriptionThatMayNotBeReadIsCode4_data() { addRows(ofDescriptions); }
    void descriptionThatMayNotBeReadIsCode4();
    void regionThatCannotBeMappedIsCode4_data() { addRows(ofRegions); }
    void regionThatCannotBeMappedIsCode4();
    void lockThatIsHeldIsCode6();
    void otherLayoutIsCode8_data() { addRows(ofRegions); }
    void otherLayoutIsCode8();
    void brokenDescriptionIsCode9_data() { addRows(ofDescriptions); }
    void brokenDescriptionIsCode9();
    void slotAtFaultIsCode9_data();
    void slotAtFaultIsCode9();
    void fullOutputIsCode9_data();
    void fullOutputIsCode9();

private:
    /// The call as words of a command line.
    QStringList line(const QString &subcommand, const QString &file) const
    {
        return callOf(subcommand)
            .replaceInStrings(QRegularExpression(QStringLiteral("^FILE$")), file)
            .replaceInStrings(QStringLiteral("FOLDER"), QFileInfo(m_file).path());
    }
    /// Runs it; it ends with that code, and says no more than an error of one line.
    void fails(const QString &subcommand, int exitCode, const QString &words);

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolExitCodes::init()
{
    m_log = std::make_unique<LogCapture>();
    m_description = std::make_unique<ToolDescription>();
    m_description->add(QStringLiteral("n/speed"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->publish(QStringLiteral("n/speed"), validValue(1)));
    m_description->write(QStringLiteral("values.json"), R"({"n/speed": 1})");
    QCOMPARE(runTool({QStringLiteral("snapshot"), m_file, QStringLiteral("-o"),
                      m_description->path(QStringLiteral("kept.json"))})
                 .exitCode,
             0);
}

void tst_ToolExitCodes::cleanup()
{
    m_region.reset();
    m_description.reset();
    m_log.reset();
}

void tst_ToolExitCodes::fails(const QString &subcommand, int exitCode, const QString &words)
{
    const ToolResult result = runTool(line(subcommand, m_file));

    const QString error = result.error.section(QLatin1Char('\n'), -2, -2);
    QVERIFY2(error.startsWith(QStringLiteral("tessel: ")) && error.contains(words),
             qPrintable(result.error));
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolExitCodes::everyCallIsRight()
{
    QFETCH(QString, subcommand);

    const ToolResult result = runTool(line(subcommand, m_file));

    QCOMPARE(result.error, QString());
    // The machine may have something that doctor tells of.
    QVERIFY(result.exitCode == 0
            || (result.exitCode == 1 && subcommand == QLatin1String("doctor")));
}

void tst_ToolExitCodes::missingFileIsCode3()
{
    QFETCH(QString, subcommand);
    QVERIFY(QFile::remove(m_file));

    fails(subcommand, 3, QStringLiteral("%1: no such file").arg(m_file));
}

void tst_ToolExitCodes::missingRegionIsCode3()
{
    QFETCH(QString, subcommand);
    m_region.reset();

    fails(subcommand, 3, QStringLiteral("%1: no region ").arg(m_file));
}

void tst_ToolExitCodes::descriptionThatMayNotBeReadIsCode4()
{
    QFETCH(QString, subcommand);
    if (!makePermissionsCount()) {
        QSKIP("The system does not take root's permissions away.");
    }
    const NarrowPermissions narrow(m_file, {});

    fails(subcommand, 4, QStringLiteral("%1: no permission to read it").arg(m_file));
}

void tst_ToolExitCodes::regionThatCannotBeMappedIsCode4()
{
    QFETCH(QString, subcommand);
    m_region.reset();
    const SegmentFile segment(m_description->key() + QStringLiteral("SharedMemory"));
    QFile empty(segment.path());
    QVERIFY(empty.open(QIODevice::WriteOnly));

    fails(subcommand, 4,
          QStringLiteral("%1: cannot attach to region '%2': Invalid argument")
              .arg(m_file, m_description->key()));
}

void tst_ToolExitCodes::lockThatIsHeldIsCode6()
{
    m_region.reset();
    m_description->setRoot(QStringLiteral("doubleBuffer"), false);
    m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->manager().lockWriteBuffer());

    // All at once, as each waits for five seconds.
    std::vector<std::unique_ptr<ToolProcess>> processes;
    for (const auto &subcommand : ofValues) {
        processes.push_back(std::make_unique<ToolProcess>(line(subcommand, m_file)));
    }
    QVector<ToolResult> results;
    for (const auto &process : processes) {
        results.append(process->finish());
    }
    m_region->manager().unlockWriteBuffer();

    for (int i = 0; i < results.size(); ++i) {
        QCOMPARE(results[i].error,
                 QStringLiteral("tessel: %1: another process has held the lock of region '%2' for "
                                "more than 5 s\n")
                     .arg(m_file, m_description->key()));
        QVERIFY2(results[i].exitCode == 6, qPrintable(ofValues[i]));
    }
    QVERIFY(!QFile::exists(m_description->path(QStringLiteral("taken.json"))));
}

void tst_ToolExitCodes::otherLayoutIsCode8()
{
    QFETCH(QString, subcommand);
    m_description->add(QStringLiteral("n/more"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    m_description->write();

    fails(subcommand, 8, QStringLiteral("; its creator uses another description"));
}

void tst_ToolExitCodes::brokenDescriptionIsCode9()
{
    QFETCH(QString, subcommand);
    m_description->write(QFileInfo(m_file).fileName(), "{");

    fails(subcommand, 9, QStringLiteral("%1: cannot be parsed: line 1, column ").arg(m_file));
}

void tst_ToolExitCodes::slotAtFaultIsCode9_data()
{
    // It compares everything, of which such a leaf is left out with a note.
    QStringList naming = ofValues + QStringList(QStringLiteral("trend"));
    naming.removeOne(QStringLiteral("compare"));
    addRows(naming);
}

void tst_ToolExitCodes::slotAtFaultIsCode9()
{
    QFETCH(QString, subcommand);
    m_region.reset();
    m_description->setRoot(QStringLiteral("sizeOfSharedMemory"), 2);
    m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);

    fails(subcommand, 9, QStringLiteral("%1: 'n/speed' has no usable slot: ").arg(m_file));
}

void tst_ToolExitCodes::fullOutputIsCode9_data()
{
    // What prints nothing where nothing is wrong cannot fail to print it.
    QStringList printing = ofDescriptions;
    for (const char *silent : {"set", "snapshot", "expect", "compare"}) {
        printing.removeOne(QLatin1String(silent));
    }
    addRows(printing);
}

void tst_ToolExitCodes::fullOutputIsCode9()
{
    QFETCH(QString, subcommand);
    QProcess process;
    process.setStandardOutputFile(QStringLiteral("/dev/full"));
    process.start(QStringLiteral(TESSEL_TOOL), line(subcommand, m_file));

    QVERIFY(process.waitForFinished(60000));

    QCOMPARE(QString::fromUtf8(process.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
    QCOMPARE(process.exitCode(), 9);
}

QTEST_GUILESS_MAIN(tst_ToolExitCodes)
#include "tst_ToolExitCodes.moc"
