#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "integration/DeviceChanges.h"
#include "integration/DisturbedRename.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"

#include <QRegularExpression>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Handler = ConfigurationModificationHandler;
using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

constexpr int numberOfFiles = 9;
const QString once = QStringLiteral("Device");
const QString twice = QStringLiteral("Device(Device)");

/// On a device without any space left.
bool writeBackWithoutSpace(const DescriptionDirectory &directory, const Root &root)
{
    const auto former = std::signal(SIGXFSZ, SIG_IGN);
    bool result = true;
    {
        const ResourceLimit noSpace(RLIMIT_FSIZE, 0);
        result = writeDeviceBack(directory, root);
    }
    std::signal(SIGXFSZ, former);
    return result;
}

QString dateOf(const DescriptionDirectory &directory, const QString &file)
{
    return directory.json(file).value(Definitions::getKeyDataPropertyLastModified()).toString();
}

/// Whether all configuration files were stamped from @p begin until now.
bool areStampedSince(const QDateTime &begin, const DescriptionDirectory &directory)
{
    const QDateTime end = QDateTime::currentDateTime();
    for (const DeviceChange &change : deviceChanges()) {
        const QDateTime date = QDateTime::fromString(dateOf(directory, change.file),
                                                     Qt::ISODateWithMs);
        if (!date.isValid() || date < begin || date > end) {
            return false;
        }
    }
    return true;
}

/// One text for the first @p count files, another for those behind.
QStringList modifiers(int count, const QString &first, const QString &rest)
{
    QStringList texts;
    for (int file = 0; file < numberOfFiles; ++file) {
        texts.append(file < count ? first : rest);
    }
    return texts;
}

LogLine commitFailed(const QString &path)
{
    return warning(QStringLiteral("Error on commit file! \"%1\"").arg(path));
}

LogLine folderFailed(const DescriptionDirectory &directory)
{
    return warning(QStringLiteral("Cannot frame folder \"%1\"").arg(directory.path()));
}

} // namespace

/// A changed configuration that goes back into the files of a whole device and meets with trouble.
class tst_DeviceWriteBack : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void everyFileIsWrittenAndStamped();
    void failedCommitLeavesTheOldFile_data();
    void failedCommitLeavesTheOldFile();
    void deviceWithoutAnyCommitStaysOld();
    void deviceWithoutSpaceStaysOld();
    void killedWriteBackLeavesWholeFiles_data();
    void killedWriteBackLeavesWholeFiles();
    void folderWithoutElementEndsTheWriteBack_data();
    void folderWithoutElementEndsTheWriteBack();

private:
    /// All files as they came, but for the configuration files: those with a modifier are changed.
    DescriptionDirectory::Snapshot expected(const QStringList &modifiedBy) const;
    /// All files that a device has, without dates.
    DescriptionDirectory::Snapshot described() const;
    /// The files that are no business of a write-back. Tells also whether one was replaced.
    DescriptionDirectory::Snapshot others() const;

    QScopedPointer<DescriptionDirectory> m_directory;
    DescriptionDirectory::Snapshot m_old;
    DescriptionDirectory::Snapshot m_formerOthers;
};

void tst_DeviceWriteBack::initTestCase()
{
    const DescriptionDirectory directory("device");
    QVERIFY(directory.copy(QStringLiteral(EXAMPLE_DEVICE)));
    m_old = directory.contents();
    QStringList files;
    for (const DeviceChange &change : deviceChanges()) {
        files.append(change.file);
    }
    QCOMPARE(directory.files().filter(QRegularExpression("\\.config\\.json$")), files);
    QCOMPARE(files.size(), numberOfFiles);
    for (auto file = m_old.cbegin(); file != m_old.cend(); ++file) {
        QCOMPARE(undated(file.value()), file.value());
    }
    const Root root = readDevice(directory);
    for (const DeviceChange &change : deviceChanges()) {
        QVERIFY(Tools::extractConfigValue(change.url(), root).isValid());
        QVERIFY(Tools::extractConfigValue(change.url(), root) != change.value.toVariant());
    }
}

void tst_DeviceWriteBack::init()
{
    m_directory.reset(new DescriptionDirectory("device"));
    QVERIFY(m_directory->copy(QStringLiteral(EXAMPLE_DEVICE)));
    m_formerOthers = others();
    QCOMPARE(m_formerOthers.size(), m_old.size() - numberOfFiles);
    Handler::getInstance().clearModifiedInstances();
}

/// Whatever happened: process descriptions and folder descriptions were left alone.
void tst_DeviceWriteBack::cleanup()
{
    QCOMPARE(others(), m_formerOthers);
    m_directory.reset();
}

DescriptionDirectory::Snapshot tst_DeviceWriteBack::expected(const QStringList &modifiedBy) const
{
    DescriptionDirectory::Snapshot files = m_old;
    for (int file = 0; file < numberOfFiles; ++file) {
        const DeviceChange change = deviceChanges().at(file);
        if (!modifiedBy.at(file).isEmpty()) {
            files.insert(change.file,
                         changedText(m_old.value(change.file), change, modifiedBy.at(file)));
        }
    }
    return files;
}

DescriptionDirectory::Snapshot tst_DeviceWriteBack::described() const
{
    DescriptionDirectory::Snapshot files;
    for (auto file = m_old.cbegin(); file != m_old.cend(); ++file) {
        files.insert(file.key(), undated(m_directory->read(file.key())));
    }
    return files;
}

DescriptionDirectory::Snapshot tst_DeviceWriteBack::others() const
{
    DescriptionDirectory::Snapshot files;
    const DescriptionDirectory::Snapshot all = m_directory->snapshot();
    for (auto file = m_old.cbegin(); file != m_old.cend(); ++file) {
        if (!file.key().endsWith(QLatin1String(".config.json"))) {
            files.insert(file.key(), all.value(file.key()));
        }
    }
    return files;
}

void tst_DeviceWriteBack::everyFileIsWrittenAndStamped()
{
    const Root root = readChangedDevice(*m_directory);
    QVERIFY(!root.isNull());
    LogCapture log;

    for (const QString &modifier : {once, twice}) {
        const QDateTime begin = QDateTime::currentDateTime();
        Handler::getInstance().clearModifiedInstances();

        QVERIFY(writeDeviceBack(*m_directory, root));

        QCOMPARE(log.take(), QList<LogLine>());
        QCOMPARE(described(), expected(modifiers(numberOfFiles, modifier, {})));
        QCOMPARE(m_directory->files(), m_old.keys());
        QVERIFY(areStampedSince(begin, *m_directory));
        QList<ModifiedInstanceItem> items;
        Handler::getInstance().getModifiedInstances(items);
        QCOMPARE(items.size(), numberOfFiles);
        for (int file = 0; file < numberOfFiles; ++file) {
            const DeviceChange change = deviceChanges().at(file);
            QCOMPARE(items.at(file).moduleName, QString("module"));
            QCOMPARE(items.at(file).objectName, QString("object"));
            QCOMPARE(items.at(file).instanceName, "device/" + change.fileUrl());
            QCOMPARE(items.at(file).lastModified, dateOf(*m_directory, change.file));
        }
    }
}

void tst_DeviceWriteBack::failedCommitLeavesTheOldFile_data()
{
    QTest::addColumn<int>("call");

    for (int call = 1; call <= numberOfFiles; ++call) {
        QTest::addRow("file %d", call) << call;
    }
}

void tst_DeviceWriteBack::failedCommitLeavesTheOldFile()
{
    QFETCH(int, call);
    const QString failed = deviceChanges().at(call - 1).file;
    const Root root = readChangedDevice(*m_directory);
    QVERIFY(!root.isNull());
    bool result = false;
    LogCapture log;

    {
        const DisturbedRename failing(Disturbance::Fail, call);
        result = writeDeviceBack(*m_directory, root);
    }

    // A commit that fails is in the log alone.
    QVERIFY(result);
    COMPARE_LOG(log, commitFailed(m_directory->filePath(failed)));
    QCOMPARE(DisturbedRename::calls(), numberOfFiles);
    QStringList modifiedBy = modifiers(numberOfFiles, once, {});
    modifiedBy.replace(call - 1, QString());
    QCOMPARE(described(), expected(modifiedBy));
    QCOMPARE(m_directory->files(), m_old.keys());

    // The tree keeps the stamps, also that of the file which was not replaced.
    const QDateTime begin = QDateTime::currentDateTime();
    QVERIFY(writeDeviceBack(*m_directory, root));
    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(described(), expected(modifiers(numberOfFiles, twice, {})));
    QVERIFY(areStampedSince(begin, *m_directory));
}

void tst_DeviceWriteBack::deviceWithoutAnyCommitStaysOld()
{
    const Root root = readChangedDevice(*m_directory);
    QVERIFY(!root.isNull());
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    bool result = false;
    LogCapture log;

    {
        const DisturbedRename failing(Disturbance::Fail, 0);
        result = writeDeviceBack(*m_directory, root);
    }

    QVERIFY(result);
    QList<LogLine> lines;
    for (const DeviceChange &change : deviceChanges()) {
        lines.append(commitFailed(m_directory->filePath(change.file)));
    }
    QCOMPARE(toText(log.take()), toText(lines));
    QCOMPARE(m_directory->snapshot(), former);
    // Who begins anew begins with what the files tell.
    QVERIFY(writeDeviceBack(*m_directory, readChangedDevice(*m_directory)));
    QCOMPARE(described(), expected(modifiers(numberOfFiles, once, {})));
}

void tst_DeviceWriteBack::deviceWithoutSpaceStaysOld()
{
    const Root root = readChangedDevice(*m_directory);
    QVERIFY(!root.isNull());
    const QString first = m_directory->filePath(deviceChanges().first().file);
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    LogCapture log;

    const bool result = writeBackWithoutSpace(*m_directory, root);

    QVERIFY(!result);
    COMPARE_LOG(log, warning("Error on writing to file! \"" + first + '"'), commitFailed(first),
                warning("Framing Error occured \"" + first + '"'), folderFailed(*m_directory));
    QCOMPARE(m_directory->snapshot(), former);

    // The walk ended at the first file, which has its stamp already.
    const QDateTime begin = QDateTime::currentDateTime();
    QVERIFY(writeDeviceBack(*m_directory, root));
    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(described(), expected(modifiers(1, twice, once)));
    QVERIFY(areStampedSince(begin, *m_directory));
}

void tst_DeviceWriteBack::killedWriteBackLeavesWholeFiles_data()
{
    QTest::addColumn<int>("call");
    QTest::addColumn<bool>("isReplaced");

    for (int call = 1; call <= numberOfFiles; ++call) {
        QTest::addRow("before file %d", call) << call << false;
        QTest::addRow("after file %d", call) << call << true;
    }
}

void tst_DeviceWriteBack::killedWriteBackLeavesWholeFiles()
{
    QFETCH(int, call);
    QFETCH(bool, isReplaced);
    const int written = isReplaced ? call : call - 1;

    ChildProcess writer([&](const ChildSide &) {
        const Root root = readChangedDevice(*m_directory);
        CHILD_VERIFY(!root.isNull());
        const DisturbedRename killing(isReplaced ? Disturbance::KillAfter : Disturbance::KillBefore,
                                      call);
        writeDeviceBack(*m_directory, root);
        return 1;
    });

    QCOMPARE(writer.waitForExit(), -SIGKILL);
    QCOMPARE(described(), expected(modifiers(written, once, {})));
    // What the killed process was writing stays behind under a name that no description has.
    const int leftOver = isReplaced ? 0 : 1;
    QCOMPARE(m_directory->files().size(), m_old.size() + leftOver);

    const QDateTime begin = QDateTime::currentDateTime();
    LogCapture log;
    const Root root = readChangedDevice(*m_directory);
    QVERIFY(!root.isNull());
    QVERIFY(writeDeviceBack(*m_directory, root));
    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(described(), expected(modifiers(written, twice, once)));
    QVERIFY(areStampedSince(begin, *m_directory));
    QCOMPARE(m_directory->files().size(), m_old.size() + leftOver);
}

void tst_DeviceWriteBack::folderWithoutElementEndsTheWriteBack_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<int>("written");

    QTest::newRow("before all") << "a" << 0;
    QTest::newRow("behind counters") << "d" << 1;
    QTest::newRow("behind device") << "device.d" << 2;
    QTest::newRow("behind diagnosis") << "diagnosis2" << 3;
    QTest::newRow("behind digital") << "e" << 4;
    QTest::newRow("behind calibration") << "inputs/calibration2" << 5;
    QTest::newRow("behind channel 1") << "inputs/channel12" << 6;
    QTest::newRow("behind channel 2") << "inputs/channel22" << 7;
    QTest::newRow("behind channel 3") << "inputs/channel32" << 8;
    QTest::newRow("behind all") << "z" << 9;
}

void tst_DeviceWriteBack::folderWithoutElementEndsTheWriteBack()
{
    QFETCH(QString, folder);
    QFETCH(int, written);
    const Root root = readChangedDevice(*m_directory);
    QVERIFY(!root.isNull());
    const QString stranger = folder + "/x.config.json";
    const QByteArray text = m_old.value("device.config.json");
    QVERIFY(m_directory->write(stranger, text));
    LogCapture log;

    QVERIFY(!writeDeviceBack(*m_directory, root));

    COMPARE_LOG(log,
                warning(QStringLiteral("Invalid root node given during parsing file \"%1\"")
                            .arg(m_directory->filePath(stranger))),
                folderFailed(*m_directory));
    QCOMPARE(described(), expected(modifiers(written, once, {})));
    QCOMPARE(m_directory->read(stranger), text);
    QCOMPARE(m_directory->files().size(), m_old.size() + 1);

    QVERIFY(QDir(m_directory->filePath(folder)).removeRecursively());
    const QDateTime begin = QDateTime::currentDateTime();
    QVERIFY(writeDeviceBack(*m_directory, root));
    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(described(), expected(modifiers(written, twice, once)));
    QVERIFY(areStampedSince(begin, *m_directory));
}

QTEST_GUILESS_MAIN(tst_DeviceWriteBack)
#include "tst_DeviceWriteBack.moc"
