#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/SemaphoreSet.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Root = ProcessDataManager::BaseClassSharedPointer;

const auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
const auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;

QStringList urlsOf(const Root &root)
{
    QStringList urls;
    QString prefix;
    root->collectUrlsOfElements(urls, prefix);
    for (QString &url : urls) {
        url.remove(0, 1);
    }
    urls.sort();
    return urls;
}

QStringList processFilesOf(const DescriptionDirectory &directory)
{
    return directory.files().filter(QRegularExpression(QStringLiteral("\\.process\\.json$")));
}

/// A value of the leaf's type that no other leaf of that type has in this round.
ProcessValue valueFor(const ProcessDataValue &leaf, int index, int round)
{
    const QString type = leaf.getProperty(QStringLiteral("type")).toString();
    const int number = (index + round * 7) % 100;
    QVariant value = number;
    if (type == QLatin1String("bit") || type == QLatin1String("boolean")) {
        value = (index + round) % 2 == 0;
    } else if (type == QLatin1String("double")) {
        value = number + 0.25;
    } else if (type == QLatin1String("float")) {
        value = static_cast<float>(number) + 0.5F;
    } else if (type == QLatin1String("string")) {
        value = QStringLiteral("text %1").arg(number);
    }
    return ProcessValue(value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
}

bool isReadOnly(const ProcessDataValue &leaf)
{
    return leaf.getProperty(QStringLiteral("readOnly")).toBool();
}

/// Writes all leaves. What is read-only must be writable for the creating process alone.
bool writeAll(const Root &root, int round, bool writeReadOnly)
{
    const QStringList urls = urlsOf(root);
    for (int index = 0; index < urls.size(); ++index) {
        const auto leaf = root->getLeafProcessDataValue(urls.at(index));
        const bool isExpected = writeReadOnly || !isReadOnly(*leaf);
        if (leaf->setValue(valueFor(*leaf, index, round)) != isExpected) {
            std::fprintf(stderr, "write: %s\n", qPrintable(urls.at(index)));
            return false;
        }
    }
    return true;
}

/// Whether all leaves show what was written in the round; the read-only ones that of their own.
bool readAll(const Root &root, int round, int readOnlyRound)
{
    const QStringList urls = urlsOf(root);
    for (int index = 0; index < urls.size(); ++index) {
        const auto leaf = root->getLeafProcessDataValue(urls.at(index));
        const ProcessValue expected = valueFor(*leaf, index,
                                               isReadOnly(*leaf) ? readOnlyRound : round);
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        leaf->getValue(value);
        if (value.getErrorType() != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
            || value.getValue().toString() != expected.getValue().toString()) {
            std::fprintf(stderr, "read: %s\n", qPrintable(urls.at(index)));
            return false;
        }
    }
    return true;
}

} // namespace

/// The complete device of the examples, whose description is spread over a tree of directories.
class tst_DeviceDirectory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void exampleIsLaidOutAlready();
    void wrongNumbersOfTheExampleAreSetRight();
    void leavesCarryOffsetsOfTheWholeDirectory();
    void slotsDoNotOverlap();
    void everyLeafIsBoundAndFilled();
    void valuesPassBetweenProcessesUnderUrls();
    void laterAttacherFindsTheValues();

private:
    QString m_prefix;
    QScopedPointer<DescriptionDirectory> m_directory;
};

void tst_DeviceDirectory::init()
{
    // The stored key is everybody's: with a prefix of its own the test gets a memory of its own.
    m_prefix = SemaphoreSet::uniqueKey("device");
    m_directory.reset(new DescriptionDirectory("device"));
    QVERIFY(m_directory->copy(EXAMPLE_DEVICE));
}

void tst_DeviceDirectory::cleanup()
{
    const QString key = Description::keyOf(m_directory->json("inputs/channel1.process.json"));
    // Where a test has made no memory the key is everybody's.
    if (key.startsWith(m_prefix)) {
        QVERIFY(!QFile::exists("/dev/shm/" + key + "SharedMemory"));
        QVERIFY(!SemaphoreSet(key + "Semaphore").exists());
    }
    m_directory.reset();
}

void tst_DeviceDirectory::exampleIsLaidOutAlready()
{
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    QString key;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().buildProcessDataFromDir("tessel", m_directory->path(), key));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(m_directory->snapshot(), former);
    const QStringList files = processFilesOf(*m_directory);
    QCOMPARE(files.size(), 9);
    for (const QString &file : files) {
        QCOMPARE(Description::keyOf(m_directory->json(file)), key);
    }
    QVERIFY(key.startsWith("tesselFolderdevice"));
}

void tst_DeviceDirectory::wrongNumbersOfTheExampleAreSetRight()
{
    QMap<QString, QJsonObject> right;
    for (const QString &file : processFilesOf(*m_directory)) {
        right.insert(file, m_directory->json(file));
        QByteArray text = m_directory->read(file);
        QVERIFY(text.contains("\"offsetSharedMemory\": "));
        text.replace("\"offsetSharedMemory\": ", "\"offsetSharedMemory\": 1");
        text.replace("\"sizeOfSharedMemory\": ", "\"sizeOfSharedMemory\": 1");
        QVERIFY(m_directory->write(file, text));
        QVERIFY(m_directory->json(file) != right.value(file));
    }
    QString key;

    QVERIFY(ProcessDataBuilder().buildProcessDataFromDir("tessel", m_directory->path(), key));

    for (auto file = right.cbegin(); file != right.cend(); ++file) {
        QCOMPARE(m_directory->json(file.key()), file.value());
    }
}

void tst_DeviceDirectory::leavesCarryOffsetsOfTheWholeDirectory()
{
    QString key;
    Root root;

    QVERIFY(ProcessDataBuilder().buildProcessDataFromDir(m_prefix, m_directory->path(), key));
    QVERIFY(Access::parseProcessDir(root, QFileInfo(m_directory->path())));

    QVERIFY(key.startsWith(m_prefix + "Folderdevice"));
    QCOMPARE(root->getProperty("keyProcessDataMemory").toString(), key);
    QCOMPARE(urlsOf(root).size(), 65);
    // By hand, for the first two files of the walk, which takes names by code point.
    const auto offset = [&root](const QString &url) {
        return root->getLeaf(url)->getProperty("offsetSharedMemory").toInt();
    };
    QCOMPARE(processFilesOf(*m_directory).mid(0, 2),
             (QStringList{"counters/energy.process.json", "counters/flow.process.json"}));
    QCOMPARE(offset("counters/flow/rate"), 40);
    QCOMPARE(offset("counters/flow/total"), 52);
    QCOMPARE(offset("counters/flow/balance"), 64);
    QCOMPARE(offset("counters/flow/pulses"), 76);
    QCOMPARE(offset("counters/flow/resets"), 88);
    // The tree tells what the files tell.
    QCOMPARE(offset("inputs/channel1/value"),
             Description::offsetOf(m_directory->json("inputs/channel1.process.json"), "value"));
}

void tst_DeviceDirectory::slotsDoNotOverlap()
{
    struct Slot
    {
        int begin;
        int end;
        QString url;
    };
    QString key;
    Root root;
    QVERIFY(ProcessDataBuilder().buildProcessDataFromDir(m_prefix, m_directory->path(), key));
    QVERIFY(Access::parseProcessDir(root, QFileInfo(m_directory->path())));

    QList<Slot> slotsOfLeaves;
    for (const QString &url : urlsOf(root)) {
        const auto leaf = root->getLeaf(url);
        const int begin = leaf->getProperty("offsetSharedMemory").toInt();
        const int size = leaf->getProperty("sizeValue").toInt()
                         + leaf->getProperty("sizeMetadata").toInt();
        QVERIFY(size > 0);
        slotsOfLeaves.append({begin, begin + size, url});
    }
    std::sort(slotsOfLeaves.begin(), slotsOfLeaves.end(),
              [](const Slot &left, const Slot &right) { return left.begin < right.begin; });

    QCOMPARE(slotsOfLeaves.first().begin, 0);
    for (int index = 1; index < slotsOfLeaves.size(); ++index) {
        const Slot &before = slotsOfLeaves.at(index - 1);
        const Slot &slot = slotsOfLeaves.at(index);
        QVERIFY2(before.end <= slot.begin, qPrintable(before.url + " and " + slot.url));
        // Gaps only where a file begins.
        const bool isSameFile = before.url.section('/', 0, 1) == slot.url.section('/', 0, 1);
        QVERIFY2(slot.begin == (isSameFile ? before.end : (before.end + 3) / 4 * 4),
                 qPrintable(slot.url));
    }
    QCOMPARE(root->getProperty("sizeOfSharedMemory").toInt(),
             (slotsOfLeaves.last().end + 3) / 4 * 4);
}

void tst_DeviceDirectory::everyLeafIsBoundAndFilled()
{
    ProcessDataManager manager;
    LogCapture log;

    const Root root = manager.createProcessDataFromDir(m_prefix, m_directory->path(), create);

    QVERIFY(root);
    const QString key = root->getProperty("keyProcessDataMemory").toString();
    COMPARE_LOG(log,
                debugLine(QStringLiteral("Create: Key for shared memory ( \"%1\" )!").arg(key)));
    for (const QString &url : urlsOf(root)) {
        const auto leaf = root->getLeafProcessDataValue(url);
        QVERIFY(leaf);
        QVERIFY2(leaf->isObjectValid(), qPrintable(url));
    }
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DeviceDirectory::valuesPassBetweenProcessesUnderUrls()
{
    const QString path = m_directory->path();
    const QString prefix = m_prefix;
    ChildProcess attacher([&path, &prefix](const ChildSide &parent) {
        const LogCapture silence;
        parent.waitForWord();
        ProcessDataManager manager;
        const Root root = manager.createProcessDataFromDir(prefix, path, attach);
        CHILD_VERIFY(root);
        CHILD_VERIFY(urlsOf(root).size() == 65);
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(readAll(root, 1, 1));
        CHILD_VERIFY(writeAll(root, 2, false));
        CHILD_VERIFY(manager.swapReadAndWriteBuffer());
        return 0;
    });
    ProcessDataManager manager;
    const LogCapture silence;
    const Root root = manager.createProcessDataFromDir(m_prefix, path, create);
    QVERIFY(root);
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    attacher.tell();
    QVERIFY(attacher.waitUntilReady());

    QVERIFY(writeAll(root, 1, true));
    QVERIFY(manager.swapReadAndWriteBuffer());
    attacher.tell();
    QCOMPARE(attacher.waitForExit(), 0);

    QVERIFY(readAll(root, 2, 1));
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    const auto leaf = root->getLeafProcessDataValue(QString("inputs/channel1/value"));
    leaf->getValue(value);
    QCOMPARE(value.getValue(),
             valueFor(*leaf, urlsOf(root).indexOf("inputs/channel1/value"), 2).getValue());
    QCOMPARE(m_directory->snapshot(), former);
}

void tst_DeviceDirectory::laterAttacherFindsTheValues()
{
    ProcessDataManager manager;
    const LogCapture silence;
    const Root root = manager.createProcessDataFromDir(m_prefix, m_directory->path(), create);
    QVERIFY(root);
    QVERIFY(writeAll(root, 3, true));
    QVERIFY(manager.swapReadAndWriteBuffer());

    ChildProcess attacher([this](const ChildSide &) {
        ProcessDataManager own;
        const Root ownRoot = own.createProcessDataFromDir(m_prefix, m_directory->path(), attach);
        CHILD_VERIFY(ownRoot);
        CHILD_VERIFY(readAll(ownRoot, 3, 3));
        return 0;
    });

    QCOMPARE(attacher.waitForExit(), 0);
}

QTEST_GUILESS_MAIN(tst_DeviceDirectory)
#include "tst_DeviceDirectory.moc"
