#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/LogCapture.h"
#include "support/SemaphoreCalls.h"
#include "support/StoppedProcess.h"

#include <memory>

using namespace ProcessDataDefinitions;

namespace {

const auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
const auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;

struct TwoNumbers : ProcessDescription
{
    explicit TwoNumbers(bool hasDoubleBuffer) : ProcessDescription(16, hasDoubleBuffer)
    {
        leaves.insert(QStringLiteral("a"), int32Slot(0));
        leaves.insert(QStringLiteral("b"), int32Slot(8));
    }
};

/// A manager and the two leaves of its tree.
struct Participant
{
    Participant(const TwoNumbers &description, ProcessDataManager::InitTypeSharedMemory type)
        : root(manager.createProcessData(description.parse(), type))
        , a(root ? root->getLeafProcessDataValue(QStringLiteral("a")) : nullptr)
        , b(root ? root->getLeafProcessDataValue(QStringLiteral("b")) : nullptr)
    {
    }

    bool isWhole() const { return !a.isNull() && !b.isNull(); }
    static ProcessValue number(int value) { return {value, PROCESS_VALUE_ERROR_TYPE_VALID}; }
    static int read(const ProcessDataValueSharedPointer &leaf)
    {
        ProcessValue value(-1, PROCESS_VALUE_ERROR_TYPE_VALID);
        leaf->getValue(value);
        return value.getValue().toInt();
    }

    ProcessDataManager manager;
    ProcessDescription::Root root;
    ProcessDataValueSharedPointer a;
    ProcessDataValueSharedPointer b;
};

/// Writes the one number, stops, and writes the other one when it goes on.
ChildProcess::Body writesASet(const TwoNumbers &description, int value)
{
    return [&description, value](const ChildSide &parent) {
        LogCapture log;
        Participant writer(description, attach);
        CHILD_VERIFY(writer.isWhole());
        writer.manager.lockWriteBuffer();
        CHILD_VERIFY(writer.a->setValueNoLock(Participant::number(value)));
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(writer.b->setValueNoLock(Participant::number(value)));
        CHILD_VERIFY(writer.manager.unlockWriteBuffer());
        CHILD_VERIFY(writer.manager.swapReadAndWriteBuffer());
        return 0;
    };
}

LogLine nullWrite()
{
    return warning(QStringLiteral("Pointer to pingpongbuffer is nullptr."));
}

LogLine nullRead()
{
    return warning(QStringLiteral("Pointer to readBuffer is 0!"));
}

} // namespace

/// What an application sees while another one stands still inside its write lock.
class tst_StoppedHolderManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsOnADoubleBufferFailAsTold_data() { addWaysToEnd(); }
    void operationsOnADoubleBufferFailAsTold();
    void operationsOnASingleBufferFailAsTold();
    void attachingDoesNotWait_data();
    void attachingDoesNotWait();
    void leavingDoesNotWait();
    void newCreatorStartsBesideAStoppedWriter_data();
    void newCreatorStartsBesideAStoppedWriter();
};

void tst_StoppedHolderManager::operationsOnADoubleBufferFailAsTold()
{
    QFETCH(bool, byDeath);
    const TwoNumbers description(true);
    Participant own(description, create);
    QVERIFY(own.a->setValue(Participant::number(1)) && own.b->setValue(Participant::number(1)));
    QVERIFY(own.manager.swapReadAndWriteBuffer());
    StoppedProcess writer(writesASet(description, 2));
    QVERIFY(writer.isStopped());
    // All at the same time, since each wait lasts as long as its bound.
    ChildProcess bulkWriter([&description](const ChildSide &) {
        LogCapture log;
        Participant child(description, attach);
        log.take();
        CHILD_VERIFY(child.manager.lockWriteBuffer());
        CHILD_VERIFY(child.manager.getPointerWriteBuffer() == nullptr);
        CHILD_VERIFY(!child.manager.unlockWriteBuffer());
        CHILD_VERIFY(log.take() == QList<LogLine>());
        return 0;
    });
    ChildProcess swapper([&description](const ChildSide &) {
        LogCapture log;
        Participant child(description, attach);
        log.take();
        CHILD_VERIFY(!child.manager.swapReadAndWriteBuffer());
        CHILD_VERIFY(log.take() == QList<LogLine>());
        return 0;
    });
    LogCapture log;

    QVERIFY(!own.a->setValue(Participant::number(9)));

    COMPARE_LOG(log, nullWrite());
    QCOMPARE(bulkWriter.waitForExit(), 0);
    QCOMPARE(swapper.waitForExit(), 0);
    for (int i = 0; i < 20; ++i) {
        QCOMPARE(Participant::read(own.a), 1);
        QCOMPARE(Participant::read(own.b), 1);
    }
    QVERIFY(writer.end(byDeath));
    QCOMPARE(Participant::read(own.a), byDeath ? 1 : 2);
    QCOMPARE(Participant::read(own.b), byDeath ? 1 : 2);
    QVERIFY(own.a->setValue(Participant::number(3)));
    QVERIFY(own.manager.swapReadAndWriteBuffer());
    QCOMPARE(Participant::read(own.a), 3);
    QCOMPARE(Participant::read(own.b), byDeath ? 1 : 2);
    COMPARE_LOG(log);
}

void tst_StoppedHolderManager::operationsOnASingleBufferFailAsTold()
{
    const TwoNumbers description(false);
    Participant own(description, create);
    QVERIFY(own.a->setValue(Participant::number(1)) && own.b->setValue(Participant::number(1)));
    StoppedProcess writer(writesASet(description, 2));
    QVERIFY(writer.isStopped());
    ChildProcess reader([&description](const ChildSide &) {
        LogCapture log;
        Participant child(description, attach);
        log.take();
        CHILD_VERIFY(Participant::read(child.b) == -1);
        CHILD_VERIFY(log.take() == QList<LogLine>{nullRead()});
        return 0;
    });
    ChildProcess bulkReader([&description](const ChildSide &) {
        LogCapture log;
        Participant child(description, attach);
        log.take();
        CHILD_VERIFY(child.manager.lockReadBuffer());
        CHILD_VERIFY(child.manager.getPointerReadBuffer() == nullptr);
        bool repeat = false;
        CHILD_VERIFY(!child.manager.unlockReadBuffer(repeat) && !repeat);
        CHILD_VERIFY(log.take() == QList<LogLine>());
        return 0;
    });
    LogCapture log;

    QVERIFY(!own.a->setValue(Participant::number(9)));

    COMPARE_LOG(log, nullWrite());
    // There is nothing to exchange, and so nothing to wait for.
    QVERIFY(own.manager.swapReadAndWriteBuffer());
    QCOMPARE(reader.waitForExit(), 0);
    QCOMPARE(bulkReader.waitForExit(), 0);
    QCOMPARE(writer.goOn(), 0);
    QCOMPARE(Participant::read(own.a), 2);
    QCOMPARE(Participant::read(own.b), 2);
    QVERIFY(own.a->setValue(Participant::number(3)));
    COMPARE_LOG(log);
}

void tst_StoppedHolderManager::attachingDoesNotWait_data()
{
    QTest::addColumn<bool>("doubleBuffer");

    QTest::newRow("single buffer") << false;
    QTest::newRow("double buffer") << true;
}

void tst_StoppedHolderManager::attachingDoesNotWait()
{
    QFETCH(bool, doubleBuffer);
    const TwoNumbers description(doubleBuffer);
    Participant own(description, create);
    StoppedProcess writer(writesASet(description, 2));
    QVERIFY(writer.isStopped());
    const int waits = SemaphoreCalls::waits();

    const Participant late(description, attach);

    QVERIFY(late.isWhole());
    QCOMPARE(SemaphoreCalls::waits(), waits);
    QCOMPARE(description.semaphores.users(), 3);
    QCOMPARE(writer.goOn(), 0);
    QCOMPARE(Participant::read(late.a), 2);
}

void tst_StoppedHolderManager::leavingDoesNotWait()
{
    const TwoNumbers description(true);
    auto own = std::make_unique<Participant>(description, create);
    StoppedProcess writer(writesASet(description, 2));
    QVERIFY(writer.isStopped());
    const int waits = SemaphoreCalls::waits();

    own.reset();

    QCOMPARE(SemaphoreCalls::waits(), waits);
    QVERIFY(!description.segment.exists());
    QCOMPARE(description.semaphores.users(), 1);
    QCOMPARE(writer.goOn(), 0);
    QVERIFY(!description.semaphores.exists());
}

void tst_StoppedHolderManager::newCreatorStartsBesideAStoppedWriter_data()
{
    attachingDoesNotWait_data();
}

void tst_StoppedHolderManager::newCreatorStartsBesideAStoppedWriter()
{
    QFETCH(bool, doubleBuffer);
    const TwoNumbers description(doubleBuffer);
    ChildProcess stopped([&description](const ChildSide &parent) {
        LogCapture log;
        Participant writer(description, create);
        CHILD_VERIFY(writer.isWhole());
        writer.manager.lockWriteBuffer();
        parent.say();
        parent.waitForWord();
        log.take();
        CHILD_VERIFY(writer.a->setValueNoLock(Participant::number(7)));
        CHILD_VERIFY(writer.manager.unlockWriteBuffer());
        CHILD_VERIFY(log.take()
                     == QList<LogLine>{warning(QStringLiteral(
                         "The semaphores of this process data memory were removed: nobody can "
                         "write any more. Attach again."))});
        CHILD_VERIFY(!writer.a->setValue(Participant::number(8)));
        CHILD_VERIFY(log.take() == QList<LogLine>{nullWrite()});
        return 0;
    });
    QVERIFY(stopped.waitUntilReady());
    QVERIFY(stopped.stop());
    const auto before = SemaphoreCalls::sumOfBounds();

    Participant own(description, create);

    QVERIFY(own.isWhole());
    QVERIFY(SemaphoreCalls::sumOfBounds() - before < SystemVSemaphoreBaseClass::sm_lockWaitBound);
    QVERIFY(own.a->setValue(Participant::number(1)));
    QVERIFY(own.manager.swapReadAndWriteBuffer());
    stopped.resume();
    stopped.tell();
    QCOMPARE(stopped.waitForExit(), 0);
    QCOMPARE(Participant::read(own.a), 1);
    QCOMPARE(description.semaphores.users(), 1);
}

QTEST_GUILESS_MAIN(tst_StoppedHolderManager)
#include "tst_StoppedHolderManager.moc"
