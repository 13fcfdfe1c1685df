#include "Companion/FormatVersions.h"
#include "support/DoubleBuffer.h"
#include "support/LogCapture.h"

#include <QtTest>

namespace {

using Names = SemaphoreSet::Names;

/// Semaphores of the memory format 1: write lock, readers, users, closed, four of the fingerprint.
constexpr int formerCount = 8;
constexpr int fingerprintCount = 4;

std::vector<unsigned short> formerValues(const DoubleBuffer &buffer, unsigned short users)
{
    const auto handler = buffer.create();
    const std::vector<unsigned short> values = buffer.semaphores.values();
    std::vector<unsigned short> former{0, 0, users, 0};
    former.insert(former.end(), values.end() - fingerprintCount, values.end());
    return former;
}

} // namespace

/// What programs of two versions of the memory format make of each other.
class tst_FormerFormat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void formerSetInUseIsRefused_data();
    void formerSetInUseIsRefused();
    void formerSetThatWasLeftIsReplaced_data() { formerSetInUseIsRefused_data(); }
    void formerSetThatWasLeftIsReplaced();
    void setOfEightOfSomebodyElseIsLeftAlone();
    void setHasAnotherNumberThanTheFormerOne();
    void blockOfAnotherFormatIsRefused_data();
    void blockOfAnotherFormatIsRefused();
    void blockOfZerosIsValid();
};

void tst_FormerFormat::formerSetInUseIsRefused_data()
{
    QTest::addColumn<bool>("isCreator");

    QTest::newRow("creator") << true;
    QTest::newRow("attacher") << false;
}

void tst_FormerFormat::formerSetInUseIsRefused()
{
    QFETCH(bool, isCreator);
    const DoubleBuffer buffer;
    const std::vector<unsigned short> values = formerValues(buffer, 2);
    QCOMPARE(static_cast<int>(values.size()), formerCount);
    const int set = buffer.semaphores.make(values);
    QVERIFY(set >= 0);
    LogCapture log;

    const auto handler = isCreator ? buffer.create() : buffer.attach();

    COMPARE_LOG(
        log, warning(QStringLiteral("The semaphores of \"%1\" are of another memory format and in "
                                    "use. Run all programs with one version of the library.")
                         .arg(buffer.semaphores.key())));
    QCOMPARE(handler->lockForWrite(), nullptr);
    QVERIFY(!handler->swapBuffers());
    QCOMPARE(buffer.semaphores.id(), set);
    std::vector<unsigned short> found = buffer.semaphores.values();
    found.resize(formerCount);
    QCOMPARE(found, values);
}

void tst_FormerFormat::formerSetThatWasLeftIsReplaced()
{
    QFETCH(bool, isCreator);
    const DoubleBuffer buffer;
    const int set = buffer.semaphores.make(formerValues(buffer, 0));
    QVERIFY(set >= 0);
    LogCapture log;

    const auto handler = isCreator ? buffer.create() : buffer.attach();

    QVERIFY(buffer.semaphores.id() != set);
    QVERIFY(publishSet(*handler, 3));
    COMPARE_LOG(log);
}

void tst_FormerFormat::setOfEightOfSomebodyElseIsLeftAlone()
{
    const DoubleBuffer buffer;
    std::vector<unsigned short> values = formerValues(buffer, 0);
    values.back() = static_cast<unsigned short>(values.back() ^ 1U);
    const int set = buffer.semaphores.make(values);
    LogCapture log;

    const auto handler = buffer.create();

    QCOMPARE(buffer.semaphores.id(), set);
    QCOMPARE(handler->lockForWrite(), nullptr);
    COMPARE_LOG(log,
                warning(QStringLiteral("The semaphores of \"%1\" can't be used: System V key %2 "
                                       "belongs to somebody else (ipcs -s). Choose another "
                                       "memory key.")
                            .arg(buffer.semaphores.key())
                            .arg(SystemVSemaphoreBaseClass::systemVKey(buffer.semaphores.key()))));
}

/// So a program of format 1 takes it for somebody else's, and says so.
void tst_FormerFormat::setHasAnotherNumberThanTheFormerOne()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    QCOMPARE(semget(SystemVSemaphoreBaseClass::systemVKey(buffer.semaphores.key()), 10, 0), -1);
    QVERIFY(int{Names::SemaphoreCount} != formerCount);
    QVERIFY(semget(SystemVSemaphoreBaseClass::systemVKey(buffer.semaphores.key()), 9, 0) >= 0);
}

void tst_FormerFormat::blockOfAnotherFormatIsRefused_data()
{
    QTest::addColumn<int>("difference");

    QTest::newRow("former") << -1;
    QTest::newRow("later") << 1;
}

void tst_FormerFormat::blockOfAnotherFormatIsRefused()
{
    QFETCH(int, difference);
    const DoubleBuffer buffer;
    const auto creator = buffer.create();
    buffer.management()->format += static_cast<quint64>(difference);
    LogCapture log;

    const auto handler = buffer.attach();

    COMPARE_LOG(
        log, warning(QStringLiteral("The memory of \"%1\" has format %2 , this program has format "
                                    "%3 . Run all programs with one version of the library.")
                         .arg(buffer.semaphores.key())
                         .arg(FormatVersions::memory + difference)
                         .arg(FormatVersions::memory)));
    QCOMPARE(handler->lockForWrite(), nullptr);
    QCOMPARE(handler->lockForRead(), nullptr);
    QVERIFY(!handler->swapBuffers());
}

void tst_FormerFormat::blockOfZerosIsValid()
{
    const DoubleBuffer buffer;
    LogCapture log;

    const auto attacher = buffer.attach();

    QVERIFY(publishSet(*attacher, 3));
    QCOMPARE(readOnce(*attacher), ReadResult::Reliable);
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_FormerFormat)
#include "tst_FormerFormat.moc"
