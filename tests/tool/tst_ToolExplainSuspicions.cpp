#include "ExplainedBoiler.h"
#include "support/LogCapture.h"

#include <QFile>
#include <QtTest>

#include <csignal>

#include <unistd.h>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

namespace {

/// NAME: TEXT of each suspicion.
QStringList suspicionsOf(const QString &file, const QString &url)
{
    QStringList texts;
    const QJsonArray all = explained(file, url).value(QStringLiteral("suspicions")).toArray();
    for (const auto &suspicion : all) {
        const QJsonObject object = suspicion.toObject();
        texts.append(object.value(QStringLiteral("name")).toString() + QStringLiteral(": ")
                     + object.value(QStringLiteral("text")).toString());
    }
    return texts;
}

} // namespace

/// What `tessel explain` finds suspicious.
class tst_ToolExplainSuspicions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void suspicionOfASlotIsTold_data();
    void suspicionOfASlotIsTold();
    void valueThatWaitsToBePublishedIsTold();
    void valueOfOneBufferIsTold();
    void valueOfZeroIsNotTakenForNeverWritten();
    void lostStateIsNamed();
    void numberThatIsNoStateIsTold();
    void valueOutsideItsLimitsIsTold();
    void limitsOfLargeNumbersAreExact();
    void deadCreatorIsTold();
    void readerOfAFormerRegionIsTold();
    void lockThatNobodyLeavesIsTold();
    void silentPublisherIsTold();
    void slowPublisherIsNotSilent();
    void clockThatWasSetBackIsTold();
    void regionWithoutSemaphoresIsTold();
    void otherFormatIsTold_data();
    void otherFormatIsTold();
};

void tst_ToolExplainSuspicions::suspicionOfASlotIsTold_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("hasMetadata");
    QTest::addColumn<int>("offset");
    QTest::addColumn<QStringList>("expected");
    const QString never = QStringLiteral(
        "never-written: never written since the creation, or nothing but no-input was");
    QTest::newRow("nobody has written")
        << QStringLiteral("int32") << 4 << true << 12 << QStringList{never};
    QTest::newRow("a state that has no place")
        << QStringLiteral("int32") << 4 << false << 12
        << QStringList{QStringLiteral("no-error-state: the slot cannot carry an error state: a "
                                      "broken sensor, or a value never written, reads as valid")};
    QTest::newRow("bytes of another")
        << QStringLiteral("int32") << 4 << true << 4
        << QStringList{QStringLiteral("shared-bytes: shares byte 4 with "
                                      "'boiler/temperature': to write one changes the "
                                      "other"),
                       never};
    QTest::newRow("first buffer")
        << QStringLiteral("int32") << 4 << true << 62
        << QStringList{never, QStringLiteral("cache-line: crosses a cache line in the first "
                                             "buffer: who reads it without the library's "
                                             "locks may get half of two values")};
    QTest::newRow("outside")
        << QStringLiteral("int32") << 4 << false << 98
        << QStringList{
               QStringLiteral("no-slot: the slot cannot be used: its slot ends at byte 102 of "
                              "a buffer of 100")};
    QTest::newRow("unknown type") << QStringLiteral("int33") << 4 << true << 12
                                  << QStringList{QStringLiteral(
                                         "no-slot: the slot cannot be used: Data type not OK "
                                         "\"int33\"")};
}

void tst_ToolExplainSuspicions::suspicionOfASlotIsTold()
{
    QFETCH(QString, type);
    QFETCH(int, size);
    QFETCH(bool, hasMetadata);
    QFETCH(int, offset);
    QFETCH(QStringList, expected);
    Boiler boiler;
    const QString url = QStringLiteral("other");
    boiler.description.add(url, type, hasMetadata ? Metadata::ErrorState : Metadata::None, size,
                           {{QStringLiteral("offsetSharedMemory"), offset}});
    boiler.description.setRoot(QStringLiteral("sizeOfSharedMemory"), 100);
    const QString file = boiler.description.write();
    const LogCapture log;
    const HeldRegion region(file);

    QStringList found = suspicionsOf(file, url);

    QCOMPARE(found, expected);
}

void tst_ToolExplainSuspicions::valueThatWaitsToBePublishedIsTold()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.write(boiler.url, validValue(5.0)));

    QCOMPARE(suspicionsOf(file, boiler.url),
             QStringList{QStringLiteral("not-published: written in one buffer only, and not "
                                        "published: '5 valid' waits in the write buffer")});
}

void tst_ToolExplainSuspicions::valueOfOneBufferIsTold()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.publish(boiler.url, validValue(5.0)));

    QCOMPARE(suspicionsOf(file, boiler.url),
             QStringList{QStringLiteral("one-buffer: written in one buffer only: the other one "
                                        "still is as the creation left it")});
}

void tst_ToolExplainSuspicions::valueOfZeroIsNotTakenForNeverWritten()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.publish(boiler.url, validValue(0.0)));
    QVERIFY(region.publish(boiler.url, validValue(0.0)));

    QCOMPARE(suspicionsOf(file, boiler.url), QStringList());
}

void tst_ToolExplainSuspicions::lostStateIsNamed()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("double"), Metadata::None, 8);
    const QString file = description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.publish(QStringLiteral("a"),
                           ProcessValue(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE)));

    QCOMPARE(suspicionsOf(file, QStringLiteral("a")),
             QStringList{QStringLiteral("lost-state: reads as a valid NaN and means "
                                        "'sensor-breakage': a double without metadata cannot carry "
                                        "an error state")});
}

void tst_ToolExplainSuspicions::numberThatIsNoStateIsTold()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.publish(boiler.url, validValue(5.0)));
    QVERIFY(region.publish(boiler.url, validValue(5.0)));
    QFile segment(boiler.description.segmentPath());
    constexpr int stateOfSecondBuffer = 512 + 12 + 8;
    QVERIFY(segment.open(QIODevice::ReadWrite) && segment.seek(stateOfSecondBuffer));
    QVERIFY(segment.putChar(77) && segment.flush());

    QCOMPARE(
        suspicionsOf(file, boiler.url),
        QStringList{QStringLiteral("no-state: 77 is no error state: something else writes into "
                                   "these bytes")});
}

void tst_ToolExplainSuspicions::valueOutsideItsLimitsIsTold()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.publish(boiler.url, validValue(120.0)));
    QVERIFY(region.publish(boiler.url, validValue(120.0)));
    QCOMPARE(suspicionsOf(file, boiler.url), QStringList());

    QVERIFY(region.publish(boiler.url, validValue(120.5)));
    QCOMPARE(suspicionsOf(file, boiler.url),
             QStringList{QStringLiteral("outside-limits: 120.5 is above the upper limit, 120")});

    QVERIFY(region.publish(boiler.url, validValue(-20.5)));
    QCOMPARE(suspicionsOf(file, boiler.url),
             QStringList{QStringLiteral("outside-limits: -20.5 is below the lower limit, -20")});
}

/// Two numbers that are one as doubles.
void tst_ToolExplainSuspicions::limitsOfLargeNumbersAreExact()
{
    constexpr qint64 limit = 9007199254740992;
    ToolDescription description;
    description.add(QStringLiteral("count"), QStringLiteral("int64"),
                    ToolDescription::Metadata::ErrorState, 8,
                    {{QStringLiteral("maxLimit"), limit}});
    const QString file = description.write();
    const LogCapture log;
    HeldRegion region(file);
    const QString url = QStringLiteral("count");
    QVERIFY(region.publish(url, validValue(limit + 1)));
    QVERIFY(region.publish(url, validValue(limit + 1)));

    QCOMPARE(
        suspicionsOf(file, url),
        QStringList{QStringLiteral("outside-limits: 9007199254740993 is above the upper limit, "
                                   "9007199254740992")});
}

void tst_ToolExplainSuspicions::deadCreatorIsTold()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    ToolProcess hold({QStringLiteral("hold"), file});
    QVERIFY(hold.nextLine().startsWith(QStringLiteral("holding")));
    const qint64 creator = hold.pid();
    hold.signal(SIGKILL);
    QCOMPARE(hold.finish().exitCode, -1);

    const QStringList found = suspicionsOf(file, boiler.url);
    const LogCapture log;
    const HeldRegion cleaner(file);

    QCOMPARE(found.value(0), QStringLiteral("creator-dead: the creator, process %1, has ended "
                                            "without removing the region")
                                 .arg(creator));
}

void tst_ToolExplainSuspicions::readerOfAFormerRegionIsTold()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    ToolProcess former({QStringLiteral("hold"), file});
    QVERIFY(former.nextLine().startsWith(QStringLiteral("holding")));
    ToolProcess reader(
        {QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("3600000"), file});
    QVERIFY(reader.nextLine().contains(boiler.url));
    former.signal(SIGKILL);
    QCOMPARE(former.finish().exitCode, -1);
    const LogCapture log;
    const HeldRegion later(file);

    QCOMPARE(suspicionsOf(file, boiler.url).value(0),
             QStringLiteral("former-region: tessel %1 still has a former region of this key: it "
                            "sees nothing of this one, until it attaches again")
                 .arg(reader.pid()));

    reader.signal(SIGTERM);
    QCOMPARE(reader.finish().exitCode, 0);
}

void tst_ToolExplainSuspicions::lockThatNobodyLeavesIsTold()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.manager().lockWriteBuffer());

    const QJsonObject object = explained(file, boiler.url);
    const QStringList found = suspicionsOf(file, boiler.url);
    QVERIFY(region.manager().unlockWriteBuffer());

    QCOMPARE(object.value(QStringLiteral("lock")), QJsonValue(QStringLiteral("held")));
    QCOMPARE(object.value(QStringLiteral("lockHolder")), QJsonValue(qint64{::getpid()}));
    QCOMPARE(found.value(0),
             QStringLiteral("lock-held: tst_ToolExplainSuspicions %1 has been inside the "
                            "lock for a second: is it stopped, or does it dawdle?")
                 .arg(::getpid()));
    QVERIFY(!suspicionsOf(file, boiler.url).value(0).startsWith(QStringLiteral("lock-held")));
}

void tst_ToolExplainSuspicions::silentPublisherIsTold()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    constexpr int sets = 10;
    for (int i = 0; i < sets; ++i) {
        QVERIFY(region.publish(boiler.url, validValue(5.0)));
    }
    // A set an hour for ten hours, and none since.
    constexpr int hour = 3600;
    QVERIFY(setTimes(boiler.description, 10 * hour + 600, 20 * hour + 600));

    QCOMPARE(suspicionsOf(file, boiler.url),
             QStringList{QStringLiteral("silent: the publisher is silent: no set for 10 h, which "
                                        "is 10 times the usual interval of 1 h")});
    QCOMPARE(explained(file, boiler.url).value(QStringLiteral("usualInterval")),
             QJsonValue(hour * 1000));
}

void tst_ToolExplainSuspicions::slowPublisherIsNotSilent()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    constexpr int sets = 10;
    for (int i = 0; i < sets; ++i) {
        QVERIFY(region.publish(boiler.url, validValue(5.0)));
    }
    QVERIFY(setTimes(boiler.description, 630, 630 + sets * 600));

    QCOMPARE(suspicionsOf(file, boiler.url), QStringList());
}

void tst_ToolExplainSuspicions::clockThatWasSetBackIsTold()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.publish(boiler.url, validValue(5.0)));
    QVERIFY(region.publish(boiler.url, validValue(5.0)));
    QVERIFY(setTimes(boiler.description, -5430, 60));

    QCOMPARE(suspicionsOf(file, boiler.url),
             QStringList{QStringLiteral("clock: the last set comes from the future, by 1 h: the "
                                        "clock was set back, and ages are wrong until the next "
                                        "set")});
}

void tst_ToolExplainSuspicions::regionWithoutSemaphoresIsTold()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    QFile segment(boiler.description.segmentPath());
    QVERIFY(segment.open(QIODevice::WriteOnly));
    QVERIFY(segment.resize(536));

    const QStringList found = suspicionsOf(file, boiler.url);
    QVERIFY(segment.remove());

    QCOMPARE(found.value(0), QStringLiteral("no-semaphores: the region has no semaphores that may "
                                            "be looked at: nobody can lock it; its creator has to "
                                            "make it anew"));
}

void tst_ToolExplainSuspicions::otherFormatIsTold_data()
{
    QTest::addColumn<bool>("isOtherSize");

    QTest::newRow("the same size") << false;
    QTest::newRow("another size") << true;
}

void tst_ToolExplainSuspicions::otherFormatIsTold()
{
    QFETCH(bool, isOtherSize);
    Boiler boiler;
    QString file = boiler.description.write();
    const LogCapture log;
    const HeldRegion region(file);
    SharedMemory memory;
    memory.setKey(boiler.description.key() + QStringLiteral("SharedMemory"));
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->format += 1;
    if (isOtherSize) {
        boiler.description.add(QStringLiteral("b"), QStringLiteral("int32"),
                               ToolDescription::Metadata::ErrorState, 4);
        file = boiler.description.write();
    }

    QCOMPARE(
        suspicionsOf(file, boiler.url),
        QStringList{QStringLiteral("other-format: the region has another version of the memory "
                                   "format: its creator was built with another version of "
                                   "the library")});
    QCOMPARE(explained(file, boiler.url).value(QStringLiteral("buffers")),
             QJsonValue(QJsonArray()));
    const ToolResult result = explain({file, boiler.url});
    QCOMPARE(result.exitCode, 4);
    QCOMPARE(
        result.error,
        QStringLiteral("tessel: %1: cannot attach to region '%2': it has another version of the "
                       "memory format; run all programs with one version of the library\n")
            .arg(file, boiler.description.key()));
}

QTEST_GUILESS_MAIN(tst_ToolExplainSuspicions)
#include "tst_ToolExplainSuspicions.moc"
