#include "Companion/SystemVSemaphoreBaseClass.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "integration/EveryTypeDescription.h"
#include "integration/ExchangePeer.h"
#include "support/LogCapture.h"
#include "support/SemaphoreSet.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include <sys/sem.h>
#include <unistd.h>

namespace {

using ProcessDataDefinitions::ErrorTypes;

ProcessValue valid(const QVariant &value)
{
    return ProcessValue(value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
}

} // namespace

/// One creating process, the test itself, and two that attach.
class tst_ThreeProcesses : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void everyTypePassesFromEachProcessToTheOthers_data() { bufferKinds(); }
    void everyTypePassesFromEachProcessToTheOthers();
    void everyErrorStatePassesBothWays_data() { bufferKinds(); }
    void everyErrorStatePassesBothWays();
    void aKilledWriterLocksNobodyOut_data() { bufferKinds(); }
    void aKilledWriterLocksNobodyOut();
    void aKilledWriterPublishesNothingOfItsSet();
    void attachersGoOnWithoutTheCreator_data() { bufferKinds(); }
    void attachersGoOnWithoutTheCreator();

private:
    static void bufferKinds();
    void start(bool doubleBuffer);
    bool write(const QString &url, const ProcessValue &value);
    ProcessValue read(const QString &url) const;
    int semaphores() const
    {
        return semget(SystemVSemaphoreBaseClass::systemVKey(m_key + QLatin1String("Semaphore")), 0,
                      0);
    }
    bool isWriteLocked() const
    {
        return semctl(semaphores(), SemaphoreSet::Names::SemaphoreWriteLock, GETVAL) == 1;
    }

    QTemporaryDir m_dir;
    QString m_file;
    QString m_key;
    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ProcessDataManager> m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
    std::unique_ptr<ExchangePeer> m_first;
    std::unique_ptr<ExchangePeer> m_second;
};

void tst_ThreeProcesses::bufferKinds()
{
    QTest::addColumn<bool>("doubleBuffer");
    QTest::newRow("single buffer") << false;
    QTest::newRow("double buffer") << true;
}

void tst_ThreeProcesses::init()
{
    m_log = std::make_unique<LogCapture>();
    m_manager = std::make_unique<ProcessDataManager>();
}

void tst_ThreeProcesses::cleanup()
{
    m_root.reset();
    if (m_first) {
        QVERIFY(m_first->quit() || QTest::currentTestFailed());
    }
    m_manager.reset();
    if (m_second) {
        QVERIFY(m_second->quit() || QTest::currentTestFailed());
    }
    m_first.reset();
    m_second.reset();
    m_log.reset();
    QVERIFY(!QFile::exists(QStringLiteral("/dev/shm/%1SharedMemory").arg(m_key)));
    QCOMPARE(semaphores(), -1);
}

void tst_ThreeProcesses::start(bool doubleBuffer)
{
    m_key = QStringLiteral("tesselThree%1").arg(getpid());
    m_file = m_dir.filePath(QStringLiteral("every.process.json"));
    QFile file(m_file);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(everyTypeDescription(m_key, doubleBuffer));
    file.close();

    m_root = m_manager->createProcessDataFromFile(m_file,
                                                  ProcessDataManager::InitTypeSharedMemoryCreate);
    QVERIFY(m_root);
    m_first = std::make_unique<ExchangePeer>(m_file);
    m_second = std::make_unique<ExchangePeer>(m_file);
    QVERIFY(m_first->isReady());
    QVERIFY(m_second->isReady());
}

bool tst_ThreeProcesses::write(const QString &url, const ProcessValue &value)
{
    return m_root->getLeafProcessDataValue(url)->setValue(value);
}

ProcessValue tst_ThreeProcesses::read(const QString &url) const
{
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    m_root->getLeafProcessDataValue(url)->getValue(value);
    return value;
}

void tst_ThreeProcesses::everyTypePassesFromEachProcessToTheOthers()
{
    QFETCH(bool, doubleBuffer);
    start(doubleBuffer);

    for (const TypeCase &typeCase : everyTypeCases()) {
        QVERIFY2(write(typeCase.url, valid(typeCase.first)), qPrintable(typeCase.url));
    }
    QVERIFY(m_manager->swapReadAndWriteBuffer());
    for (const TypeCase &typeCase : everyTypeCases()) {
        QVERIFY2(m_first->read(typeCase.url) == valid(typeCase.first), qPrintable(typeCase.url));
        QVERIFY2(m_second->read(typeCase.url) == valid(typeCase.first), qPrintable(typeCase.url));
    }

    for (const TypeCase &typeCase : everyTypeCases()) {
        QVERIFY2(m_first->write(typeCase.url, valid(typeCase.second)), qPrintable(typeCase.url));
    }
    QVERIFY(m_second->swap());
    for (const TypeCase &typeCase : everyTypeCases()) {
        QVERIFY2(read(typeCase.url) == valid(typeCase.second), qPrintable(typeCase.url));
        QVERIFY2(m_second->read(typeCase.url) == valid(typeCase.second), qPrintable(typeCase.url));
    }
}

void tst_ThreeProcesses::everyErrorStatePassesBothWays()
{
    QFETCH(bool, doubleBuffer);
    start(doubleBuffer);

    for (int state = 1; state <= 9; ++state) {
        const ProcessValue error(static_cast<ErrorTypes>(state));
        const auto arrives = [&error](const TypeCase &typeCase, const ProcessValue &got) {
            // Without a place for it the state is lost: the slot reads back valid.
            return typeCase.carriesErrors
                       ? got.getErrorType() == error.getErrorType() && !got.getValue().isValid()
                       : got.getErrorType()
                             == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
        };
        for (const TypeCase &typeCase : everyTypeCases()) {
            QVERIFY(write(typeCase.url, error));
        }
        QVERIFY(m_manager->swapReadAndWriteBuffer());
        for (const TypeCase &typeCase : everyTypeCases()) {
            QVERIFY2(arrives(typeCase, m_first->read(typeCase.url)), qPrintable(typeCase.url));
            QVERIFY2(arrives(typeCase, m_second->read(typeCase.url)), qPrintable(typeCase.url));
            QVERIFY(m_second->write(typeCase.url, valid(typeCase.first)));
        }
        QVERIFY(m_second->swap());
        for (const TypeCase &typeCase : everyTypeCases()) {
            QVERIFY2(read(typeCase.url) == valid(typeCase.first), qPrintable(typeCase.url));
            QVERIFY(m_first->write(typeCase.url, error));
        }
        QVERIFY(m_first->swap());
        for (const TypeCase &typeCase : everyTypeCases()) {
            QVERIFY2(arrives(typeCase, read(typeCase.url)), qPrintable(typeCase.url));
        }
    }
}

void tst_ThreeProcesses::aKilledWriterLocksNobodyOut()
{
    QFETCH(bool, doubleBuffer);
    start(doubleBuffer);
    const QString url = QStringLiteral("double");
    QVERIFY(m_first->stayInsideWriteLock(url, valid(1.0)));
    QVERIFY(isWriteLocked());

    m_first->kill();

    // A promise to users: nobody has to wait for the dead one.
    QVERIFY(!isWriteLocked());
    QVERIFY(m_second->write(url, valid(2.0)));
    QVERIFY(m_second->swap());
    QVERIFY(read(url) == valid(2.0));
    QVERIFY(write(url, valid(3.0)));
    QVERIFY(m_manager->swapReadAndWriteBuffer());
    QVERIFY(m_second->read(url) == valid(3.0));
    m_first.reset();
}

void tst_ThreeProcesses::aKilledWriterPublishesNothingOfItsSet()
{
    start(true);
    QVERIFY(write(QStringLiteral("double"), valid(1.0)));
    QVERIFY(write(QStringLiteral("int32"), valid(1)));
    QVERIFY(m_manager->swapReadAndWriteBuffer());
    QVERIFY(m_first->stayInsideWriteLock(QStringLiteral("double"), valid(2.0)));

    m_first->kill();
    QVERIFY(m_second->write(QStringLiteral("int32"), valid(3)));
    QVERIFY(m_second->swap());

    QVERIFY(read(QStringLiteral("double")) == valid(1.0));
    QVERIFY(read(QStringLiteral("int32")) == valid(3));
    m_first.reset();
}

void tst_ThreeProcesses::attachersGoOnWithoutTheCreator()
{
    QFETCH(bool, doubleBuffer);
    start(doubleBuffer);

    m_root.reset();
    m_manager.reset();

    QVERIFY(m_first->write(QStringLiteral("text"), valid(QStringLiteral("still here"))));
    QVERIFY(m_first->swap());
    QVERIFY(m_second->read(QStringLiteral("text")) == valid(QStringLiteral("still here")));
}

QTEST_GUILESS_MAIN(tst_ThreeProcesses)

#include "tst_ThreeProcesses.moc"
