#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "support/LogCapture.h"
#include "support/SemaphoreSet.h"

namespace {

const auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
const auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;

const QString first = QStringLiteral("a.process.json");
const QString second = QStringLiteral("b.process.json");

LogLine creationLine(const QString &key)
{
    return debugLine(QStringLiteral("Create: Key for shared memory ( \"%1\" )!").arg(key));
}

LogLine attachmentLine(const QString &key)
{
    return debugLine(QStringLiteral("Attach: Key for shared memory ( \"%1\" )!").arg(key));
}

LogLine withPath(const QString &text, const QString &path)
{
    return warning(text + QStringLiteral(" \"") + path + QLatin1Char('"'));
}

LogLine buildFailure(const DescriptionDirectory &directory)
{
    return withPath("Can't build processDataFromDir:", directory.path());
}

LogLine parseFailure(const DescriptionDirectory &directory)
{
    return withPath("Can't parse root element:", directory.path());
}

LogLine noKeyLine(const DescriptionDirectory &directory)
{
    return withPath("No sharedMemoryDirKeyName. Can't change sharedMemeory dir files",
                    directory.path());
}

ProcessValue read(const ProcessDataManager::BaseClassSharedPointer &root, const QString &url)
{
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    root->getLeafProcessDataValue(url)->getValue(value);
    return value;
}

ProcessValue valid(quint32 number)
{
    return ProcessValue(number, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
}

} // namespace

class tst_ProcessDataManagerDirectories : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void creatingBuildsParsesAndBinds();
    void attachingFindsTheFilesAsTheyAre();
    void attachingDoesNotBuild();
    void directoryWithoutMemoryComesBackUnbound();
    void fileOfTwoNamesHasOneSlot();
    void failedBuildIsReported();
    void failedAttachmentIsNoRoot();
    void filesThatDisagreeAreReported();
    void attachingToFilesThatDisagreeIsReported();
    void attachingToAMissingDirectoryIsReported();
    void keyOfAFailedCreationIsKept();

    void updateBeforeAnyBuildIsRefused();
    void updateAfterAttachingIsRefused();
    void updateAfterAFailedBuildIsRefused();
    void updateWritesTheFilesAnew();
    void updateLeavesMemoryAndTree();
    void updateOfAnUnchangedDirectoryWritesNothing();
    void failedUpdateIsReported();
    void updateImposesTheKeyOnAnotherDirectory();

private:
    QString key() const { return Description::keyOf(m_directory->json(first)); }

    QString m_prefix;
    QScopedPointer<DescriptionDirectory> m_directory;
};

/// Two files with the leaves a/x, a/y and b/z.
void tst_ProcessDataManagerDirectories::init()
{
    m_prefix = SemaphoreSet::uniqueKey("directory");
    m_directory.reset(new DescriptionDirectory);
    QVERIFY(m_directory->write(first, Description::root({{"x", Description::leaf(1, 4, 4)},
                                                         {"y", Description::leaf(2, 4, 4)}})));
    QVERIFY(m_directory->write(second, Description::root({{"z", Description::leaf(1, 4, 4)}})));
    QVERIFY(m_directory->write("folder.json", QJsonObject{{"labelTextId", "label"},
                                                          {"cpveVersion", "1"},
                                                          {"configurationVersion", "2"}}));
}

void tst_ProcessDataManagerDirectories::cleanup()
{
    QVERIFY(QDir("/dev/shm").entryList({m_prefix + '*'}, QDir::Files).isEmpty());
    QVERIFY(!SemaphoreSet(key() + "Semaphore").exists());
    m_directory.reset();
}

void tst_ProcessDataManagerDirectories::creatingBuildsParsesAndBinds()
{
    ProcessDataManager manager;
    LogCapture log;

    const auto root = manager.createProcessDataFromDir(m_prefix, m_directory->path(), create);

    QVERIFY(root);
    QVERIFY(key().startsWith(m_prefix + "Folderdevice"));
    COMPARE_LOG(log, creationLine(key()));
    QVERIFY(manager.isBufferValid());
    QCOMPARE(manager.getSizeBuffer(), 24U);
    QCOMPARE(root->getProperty("keyProcessDataMemory").toString(), key());
    QCOMPARE(root->getProperty("sizeOfSharedMemory").toInt(), 24);
    QCOMPARE(root->getProperty("labelTextId").toString(), QString("label"));
    const QStringList urls{"a/x", "a/y", "b/z"};
    for (int index = 0; index < urls.size(); ++index) {
        const auto leaf = root->getLeafProcessDataValue(urls.at(index));
        QVERIFY(leaf);
        QCOMPARE(leaf->getProperty("offsetSharedMemory").toInt(), index * 8);
        QCOMPARE(read(root, urls.at(index)).getErrorType(),
                 ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        QVERIFY(!read(root, urls.at(index)).getValue().isValid());
    }
}

void tst_ProcessDataManagerDirectories::attachingFindsTheFilesAsTheyAre()
{
    ProcessDataManager creator;
    ProcessDataManager manager;
    const auto creatorRoot = creator.createProcessDataFromDir(m_prefix, m_directory->path(),
                                                              create);
    QVERIFY(creatorRoot);
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    LogCapture log;

    const auto root = manager.createProcessDataFromDir("another prefix", m_directory->path(),
                                                       attach);

    QVERIFY(root);
    COMPARE_LOG(log, attachmentLine(key()));
    QCOMPARE(m_directory->snapshot(), former);
    QVERIFY(root->getLeafProcessDataValue(QString("b/z"))->setValue(valid(7)));
    QVERIFY(manager.swapReadAndWriteBuffer());
    QVERIFY(read(creatorRoot, "b/z") == valid(7));
    QCOMPARE(read(creatorRoot, "a/y").getErrorType(),
             ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
}

void tst_ProcessDataManagerDirectories::attachingDoesNotBuild()
{
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    ProcessDataManager manager;
    LogCapture log;

    // The files agree on a size below 1, so that there is no memory.
    const auto root = manager.createProcessDataFromDir(m_prefix, m_directory->path(), attach);

    QVERIFY(root);
    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(!manager.isBufferValid());
    QCOMPARE(root->getLeaf("a/x")->getProperty("offsetSharedMemory").toInt(), -1);
    QCOMPARE(m_directory->snapshot(), former);
}

void tst_ProcessDataManagerDirectories::directoryWithoutMemoryComesBackUnbound()
{
    QVERIFY(m_directory->write(first, Description::root({})));
    QVERIFY(m_directory->write(second, Description::root({})));
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(manager.createProcessDataFromDir(m_prefix, m_directory->path(), create));

    QVERIFY(!manager.isBufferValid());
    QCOMPARE(Description::sizeOf(m_directory->json(second)), 0);
    QVERIFY(key().startsWith(m_prefix));
}

void tst_ProcessDataManagerDirectories::fileOfTwoNamesHasOneSlot()
{
    QVERIFY(QFile::link(first, m_directory->filePath("c.process.json")));
    ProcessDataManager manager;
    const auto root = manager.createProcessDataFromDir(m_prefix, m_directory->path(), create);
    QVERIFY(!root.isNull());
    const auto snapshot = m_directory->snapshot();

    QVERIFY(root->getLeafProcessDataValue("a/y")->setValue(valid(17)));

    QVERIFY(manager.swapReadAndWriteBuffer());
    QCOMPARE(read(root, "c/y"), valid(17));
    QCOMPARE(Description::sizeOf(m_directory->json(first)), 24);
    QVERIFY(
        manager.updateProcessDataFromDirAfterConfigurationChanged(m_prefix, m_directory->path()));
    QCOMPARE(m_directory->snapshot(), snapshot);
}

void tst_ProcessDataManagerDirectories::failedBuildIsReported()
{
    QVERIFY(m_directory->write(first, QByteArray("{}")));
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromDir(m_prefix, m_directory->path(), create));

    COMPARE_LOG(log, warning("key 'type' not found in JSON object"),
                withPath("Can't parse sharedMemory file:", m_directory->filePath(first)),
                buildFailure(*m_directory));
    QVERIFY(!manager.isBufferValid());
    QCOMPARE(m_directory->snapshot(), former);

    const DescriptionDirectory empty;
    QVERIFY(!manager.createProcessDataFromDir(m_prefix, empty.path(), create));
    COMPARE_LOG(log, buildFailure(empty));
}

void tst_ProcessDataManagerDirectories::failedAttachmentIsNoRoot()
{
    ProcessDataManager manager;
    QVERIFY(ProcessDataManager().createProcessDataFromDir(m_prefix, m_directory->path(), create));
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromDir(m_prefix, m_directory->path(), attach));

    const QList<LogLine> lines = log.take();
    QCOMPARE(lines.size(), 3);
    QVERIFY(lines.at(0).text.startsWith("Attach to shared memory("));
    QCOMPARE(lines.mid(1), (QList<LogLine>{warning("Can not initialize shared memory."),
                                           warning("Can not create process data memory.")}));
}

void tst_ProcessDataManagerDirectories::filesThatDisagreeAreReported()
{
    // The one fact of the region that a build does not set.
    QVERIFY(m_directory->write(second,
                               Description::with(m_directory->json(second), "doubleBuffer", true)));
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromDir(m_prefix, m_directory->path(), create));

    COMPARE_LOG(
        log,
        withPath("DoubleBuffer value is different: false != true", m_directory->filePath(second)),
        parseFailure(*m_directory));
    QVERIFY(!manager.isBufferValid());
    QCOMPARE(Description::sizeOf(m_directory->json(second)), 24);
    QCOMPARE(Description::keyOf(m_directory->json(second)), key());
}

void tst_ProcessDataManagerDirectories::attachingToFilesThatDisagreeIsReported()
{
    QVERIFY(m_directory->write(
        second, Description::with(m_directory->json(second), "keyProcessDataMemory", "other")));
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromDir(m_prefix, m_directory->path(), attach));

    COMPARE_LOG(
        log,
        withPath("SharedMemoryKey is different: \"\" != \"other\"", m_directory->filePath(second)),
        parseFailure(*m_directory));
    QCOMPARE(m_directory->snapshot(), former);
}

void tst_ProcessDataManagerDirectories::attachingToAMissingDirectoryIsReported()
{
    const QString path = m_directory->filePath("missing");
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromDir(m_prefix, path, attach));

    COMPARE_LOG(log, withPath("No sharedMemory description:", path),
                withPath("Can't parse root element:", path));
}

void tst_ProcessDataManagerDirectories::keyOfAFailedCreationIsKept()
{
    const QJsonObject right = m_directory->json(second);
    QVERIFY(m_directory->write(second, Description::with(right, "doubleBuffer", true)));
    ProcessDataManager manager;
    LogCapture log;
    QVERIFY(!manager.createProcessDataFromDir(m_prefix, m_directory->path(), create));
    const QString formerKey = key();
    QVERIFY(m_directory->write(
        first, Description::with(m_directory->json(first), "keyProcessDataMemory", "by hand")));
    QVERIFY(m_directory->write(second, right));
    log.take();

    QVERIFY(manager.createProcessDataFromDir("another prefix", m_directory->path(), create));

    COMPARE_LOG(log, creationLine(formerKey));
    QCOMPARE(key(), formerKey);
}

void tst_ProcessDataManagerDirectories::updateBeforeAnyBuildIsRefused()
{
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(
        !manager.updateProcessDataFromDirAfterConfigurationChanged(m_prefix, m_directory->path()));

    COMPARE_LOG(log, noKeyLine(*m_directory));
    QCOMPARE(m_directory->snapshot(), former);
}

void tst_ProcessDataManagerDirectories::updateAfterAttachingIsRefused()
{
    ProcessDataManager creator;
    ProcessDataManager manager;
    QVERIFY(creator.createProcessDataFromDir(m_prefix, m_directory->path(), create));
    QVERIFY(manager.createProcessDataFromDir(m_prefix, m_directory->path(), attach));
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    LogCapture log;

    QVERIFY(
        !manager.updateProcessDataFromDirAfterConfigurationChanged(m_prefix, m_directory->path()));

    COMPARE_LOG(log, noKeyLine(*m_directory));
    QCOMPARE(m_directory->snapshot(), former);
}

void tst_ProcessDataManagerDirectories::updateAfterAFailedBuildIsRefused()
{
    const QByteArray right = m_directory->read(first);
    QVERIFY(m_directory->write(first, QByteArray("{}")));
    ProcessDataManager manager;
    LogCapture log;
    QVERIFY(!manager.createProcessDataFromDir(m_prefix, m_directory->path(), create));
    QVERIFY(m_directory->write(first, right));
    log.take();

    QVERIFY(
        !manager.updateProcessDataFromDirAfterConfigurationChanged(m_prefix, m_directory->path()));

    COMPARE_LOG(log, noKeyLine(*m_directory));
}

void tst_ProcessDataManagerDirectories::updateWritesTheFilesAnew()
{
    ProcessDataManager manager;
    QVERIFY(manager.createProcessDataFromDir(m_prefix, m_directory->path(), create));
    const QString formerKey = key();
    // By hand, and so without the numbers of the device.
    QVERIFY(m_directory->write(first, Description::root({{"w", Description::leaf(1, 8, 4)},
                                                         {"x", Description::leaf(2, 4, 4)}},
                                                        "by hand")));
    LogCapture log;

    QVERIFY(manager.updateProcessDataFromDirAfterConfigurationChanged("another prefix",
                                                                      m_directory->path()));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(key(), formerKey);
    QCOMPARE(Description::offsetOf(m_directory->json(first), "x"), 12);
    QCOMPARE(Description::offsetOf(m_directory->json(second), "z"), 20);
    QCOMPARE(Description::sizeOf(m_directory->json(first)), 28);
    QCOMPARE(Description::sizeOf(m_directory->json(second)), 28);
}

void tst_ProcessDataManagerDirectories::updateLeavesMemoryAndTree()
{
    ProcessDataManager manager;
    const auto root = manager.createProcessDataFromDir(m_prefix, m_directory->path(), create);
    QVERIFY(root);
    QVERIFY(root->getLeafProcessDataValue(QString("b/z"))->setValue(valid(7)));
    QVERIFY(m_directory->write(first, Description::root({{"w", Description::leaf(1, 8, 4)}})));

    QVERIFY(
        manager.updateProcessDataFromDirAfterConfigurationChanged(m_prefix, m_directory->path()));

    QCOMPARE(Description::offsetOf(m_directory->json(second), "z"), 12);
    QCOMPARE(root->getLeaf("b/z")->getProperty("offsetSharedMemory").toInt(), 16);
    QVERIFY(root->isUrlValid(QString("a/y")));
    QVERIFY(!root->isUrlValid(QString("a/w")));
    QCOMPARE(root->getProperty("sizeOfSharedMemory").toInt(), 24);
    QCOMPARE(manager.getSizeBuffer(), 24U);
    QVERIFY(read(root, "b/z") == valid(7));
}

void tst_ProcessDataManagerDirectories::updateOfAnUnchangedDirectoryWritesNothing()
{
    ProcessDataManager manager;
    QVERIFY(manager.createProcessDataFromDir(m_prefix, m_directory->path(), create));
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    LogCapture log;

    QVERIFY(
        manager.updateProcessDataFromDirAfterConfigurationChanged(m_prefix, m_directory->path()));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(m_directory->snapshot(), former);
}

void tst_ProcessDataManagerDirectories::failedUpdateIsReported()
{
    ProcessDataManager manager;
    QVERIFY(manager.createProcessDataFromDir(m_prefix, m_directory->path(), create));
    const DescriptionDirectory empty;
    LogCapture log;

    QVERIFY(!manager.updateProcessDataFromDirAfterConfigurationChanged(m_prefix, empty.path()));

    COMPARE_LOG(log, buildFailure(empty));
    // The key outlives it.
    QVERIFY(
        manager.updateProcessDataFromDirAfterConfigurationChanged(m_prefix, m_directory->path()));
    QVERIFY(manager.isBufferValid());
}

void tst_ProcessDataManagerDirectories::updateImposesTheKeyOnAnotherDirectory()
{
    ProcessDataManager manager;
    QVERIFY(manager.createProcessDataFromDir(m_prefix, m_directory->path(), create));
    const DescriptionDirectory other("other");
    QVERIFY(other.write(first, Description::root({{"x", Description::leaf(1, 4, 4)}})));

    QVERIFY(manager.updateProcessDataFromDirAfterConfigurationChanged(m_prefix, other.path()));

    QCOMPARE(Description::keyOf(other.json(first)), key());
    QCOMPARE(Description::sizeOf(other.json(first)), 8);
}

QTEST_GUILESS_MAIN(tst_ProcessDataManagerDirectories)
#include "tst_ProcessDataManagerDirectories.moc"
