#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "integration/DisturbedRename.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

#include <QRegularExpression>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;

constexpr int numberOfFiles = 9;
const QString newKey = QStringLiteral("tesselFolderdevice, new");

/// In the order in which the build takes them.
QStringList processFilesOf(const DescriptionDirectory &directory)
{
    return directory.files().filter(QRegularExpression(QStringLiteral("\\.process\\.json$")));
}

/// A copy of the example in which every number and key of every file has to change.
bool makeOldDevice(const DescriptionDirectory &directory)
{
    if (!directory.copy(QStringLiteral(EXAMPLE_DEVICE))) {
        return false;
    }
    for (const QString &file : processFilesOf(directory)) {
        QByteArray text = directory.read(file);
        text.replace("\"offsetSharedMemory\": ", "\"offsetSharedMemory\": 1");
        text.replace("\"sizeOfSharedMemory\": ", "\"sizeOfSharedMemory\": 1");
        text.replace("\"keyProcessDataMemory\": \"", "\"keyProcessDataMemory\": \"old ");
        if (!directory.write(file, text)) {
            return false;
        }
    }
    return true;
}

bool build(const DescriptionDirectory &directory, QString key)
{
    return ProcessDataBuilder().buildProcessDataFromDir(QStringLiteral("tessel"), directory.path(),
                                                        key);
}

bool isConsistent(const DescriptionDirectory &directory)
{
    bool doubleBuffer = false;
    int size = 0;
    QString key;
    return Access::getSharedMemoryInfoFromDir(QFileInfo(directory.path()), doubleBuffer, size, key)
           && size == 552;
}

} // namespace

/// Builds of a whole device that meet with trouble, or with each other.
class tst_DeviceDirectoryBuilds : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void failedCommitLeavesTheOldFile_data();
    void failedCommitLeavesTheOldFile();
    void deviceWithoutAnyCommitStaysOld();
    void killedBuildLeavesWholeFiles_data();
    void killedBuildLeavesWholeFiles();
    void buildAfterAKilledOneFindsOneKey();
    void readersSeeOldOrNewFiles();
    void twoDevicesAreBuiltAtOnce();

private:
    /// Files before @p index are new, those from it on are old.
    void compareUpTo(int index);

    QScopedPointer<DescriptionDirectory> m_directory;
    DescriptionDirectory::Snapshot m_old;
    DescriptionDirectory::Snapshot m_new;
    QStringList m_files;
};

/// What a build without any trouble makes of it.
void tst_DeviceDirectoryBuilds::initTestCase()
{
    const DescriptionDirectory directory("device");
    QVERIFY(makeOldDevice(directory));
    m_old = directory.contents();
    m_files = processFilesOf(directory);
    QCOMPARE(m_files.size(), numberOfFiles);
    QVERIFY(build(directory, newKey));
    m_new = directory.contents();
    for (const QString &file : qAsConst(m_files)) {
        QVERIFY(m_old.value(file) != m_new.value(file));
    }
    QVERIFY(isConsistent(directory));
}

void tst_DeviceDirectoryBuilds::init()
{
    m_directory.reset(new DescriptionDirectory("device"));
    QVERIFY(makeOldDevice(*m_directory));
}

void tst_DeviceDirectoryBuilds::compareUpTo(int index)
{
    for (int file = 0; file < numberOfFiles; ++file) {
        const QString &name = m_files.at(file);
        QVERIFY2(m_directory->read(name) == (file < index ? m_new : m_old).value(name),
                 qPrintable(name));
    }
}

void tst_DeviceDirectoryBuilds::failedCommitLeavesTheOldFile_data()
{
    QTest::addColumn<int>("call");

    for (int call = 1; call <= numberOfFiles; ++call) {
        QTest::addRow("file %d", call) << call;
    }
}

void tst_DeviceDirectoryBuilds::failedCommitLeavesTheOldFile()
{
    QFETCH(int, call);
    const QString failed = m_files.at(call - 1);
    bool result = false;
    LogCapture log;

    {
        const DisturbedRename failing(Disturbance::Fail, call);
        result = build(*m_directory, newKey);
    }

    // A commit that fails is in the log alone.
    QVERIFY(result);
    COMPARE_LOG(
        log,
        warning(QStringLiteral("Error on commit file! \"%1\"").arg(m_directory->filePath(failed))));
    QCOMPARE(DisturbedRename::calls(), numberOfFiles);
    DescriptionDirectory::Snapshot expected = m_new;
    expected.insert(failed, m_old.value(failed));
    QCOMPARE(m_directory->contents(), expected);

    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    QVERIFY(build(*m_directory, newKey));
    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(m_directory->contents(), m_new);
    for (const QString &file : qAsConst(m_files)) {
        QCOMPARE(m_directory->snapshot().value(file) == former.value(file), file != failed);
    }
}

void tst_DeviceDirectoryBuilds::deviceWithoutAnyCommitStaysOld()
{
    bool result = false;
    LogCapture log;

    {
        const DisturbedRename failing(Disturbance::Fail, 0);
        result = build(*m_directory, newKey);
    }

    QVERIFY(result);
    QCOMPARE(log.take().size(), numberOfFiles);
    QCOMPARE(m_directory->contents(), m_old);
    QVERIFY(build(*m_directory, newKey));
    QCOMPARE(m_directory->contents(), m_new);
}

void tst_DeviceDirectoryBuilds::killedBuildLeavesWholeFiles_data()
{
    QTest::addColumn<int>("call");
    QTest::addColumn<bool>("isReplaced");

    for (int call = 1; call <= numberOfFiles; ++call) {
        QTest::addRow("before file %d", call) << call << false;
        QTest::addRow("after file %d", call) << call << true;
    }
}

void tst_DeviceDirectoryBuilds::killedBuildLeavesWholeFiles()
{
    QFETCH(int, call);
    QFETCH(bool, isReplaced);

    ChildProcess builder([&](const ChildSide &) {
        const DisturbedRename killing(isReplaced ? Disturbance::KillAfter : Disturbance::KillBefore,
                                      call);
        build(*m_directory, newKey);
        return 1;
    });

    QCOMPARE(builder.waitForExit(), -SIGKILL);
    compareUpTo(isReplaced ? call : call - 1);
    // What the killed process was writing stays behind under a name that no description has.
    QCOMPARE(m_directory->files().size(), m_old.size() + (isReplaced ? 0 : 1));
    QCOMPARE(processFilesOf(*m_directory), m_files);

    LogCapture log;
    QVERIFY(build(*m_directory, newKey));
    QCOMPARE(log.take(), QList<LogLine>());
    compareUpTo(numberOfFiles);
    QVERIFY(isConsistent(*m_directory));
}

void tst_DeviceDirectoryBuilds::buildAfterAKilledOneFindsOneKey()
{
    for (int call = 1; call <= numberOfFiles; ++call) {
        const DescriptionDirectory directory("device");
        QVERIFY(makeOldDevice(directory));
        ChildProcess builder([&](const ChildSide &) {
            const DisturbedRename killing(Disturbance::KillAfter, call);
            QString key;
            ProcessDataBuilder().buildProcessDataFromDir("fresh", directory.path(), key);
            return 1;
        });
        QCOMPARE(builder.waitForExit(), -SIGKILL);
        const QString keyOfFirst = Description::keyOf(directory.json(m_files.first()));
        QString key;

        QVERIFY(ProcessDataBuilder().buildProcessDataFromDir("fresh", directory.path(), key));

        QVERIFY(key.startsWith("freshFolderdevice"));
        QCOMPARE(key, keyOfFirst);
        QVERIFY(isConsistent(directory));
        for (const QString &file : qAsConst(m_files)) {
            QByteArray expected = m_new.value(file);
            expected.replace(newKey.toUtf8(), key.toUtf8());
            QCOMPARE(directory.read(file), expected);
        }
    }
}

void tst_DeviceDirectoryBuilds::readersSeeOldOrNewFiles()
{
    constexpr int builds = 60;
    QVERIFY(build(*m_directory, newKey));
    const QString otherKey = "tesselFolderdevice, other";
    const DescriptionDirectory::Snapshot first = m_directory->contents();
    QVERIFY(build(*m_directory, otherKey));
    const DescriptionDirectory::Snapshot second = m_directory->contents();

    ChildProcess reader([&](const ChildSide &parent) {
        parent.say();
        do {
            for (const QString &file : qAsConst(m_files)) {
                const QByteArray text = m_directory->read(file);
                CHILD_VERIFY(text == first.value(file) || text == second.value(file));
            }
        } while (!parent.hasWord());
        return 0;
    });
    QVERIFY(reader.waitUntilReady());

    for (int i = 0; i < builds; ++i) {
        QVERIFY(build(*m_directory, i % 2 == 0 ? newKey : otherKey));
    }
    reader.tell();

    QCOMPARE(reader.waitForExit(), 0);
}

void tst_DeviceDirectoryBuilds::twoDevicesAreBuiltAtOnce()
{
    constexpr int rounds = 10;
    const DescriptionDirectory other("device");
    QVERIFY(makeOldDevice(other));
    ChildProcess builder([&other](const ChildSide &parent) {
        parent.say();
        parent.waitForWord();
        for (int round = 0; round < rounds; ++round) {
            CHILD_VERIFY(build(other, QStringLiteral("other %1").arg(round)));
        }
        return 0;
    });
    QVERIFY(builder.waitUntilReady());

    builder.tell();
    for (int round = 0; round < rounds; ++round) {
        QVERIFY(build(*m_directory, QStringLiteral("own %1").arg(round)));
    }

    QCOMPARE(builder.waitForExit(), 0);
    for (const QString &file : qAsConst(m_files)) {
        const auto expected = [&](const QByteArray &key) {
            return QByteArray(m_new.value(file)).replace(newKey.toUtf8(), key);
        };
        QCOMPARE(m_directory->read(file), expected("own 9"));
        QCOMPARE(other.read(file), expected("other 9"));
    }
    QCOMPARE(other.files(), m_old.keys());
    QCOMPARE(m_directory->files(), m_old.keys());
}

QTEST_GUILESS_MAIN(tst_DeviceDirectoryBuilds)
#include "tst_DeviceDirectoryBuilds.moc"
