#include "DisplayedPlant.h"
#include "StoppedWriter.h"
#include "TesselModels/ProcessDataItem.h"
#include "support/RefusedSwaps.h"

#include <QDir>

using TesselModels::WriteError;

namespace {

/// Threads of this process that belong to sources; what such a thread starts has its name.
int helperThreads()
{
    int count = 0;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const auto &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile name(tasks.filePath(task + QStringLiteral("/comm")));
        count += name.open(QIODevice::ReadOnly) && name.readAll() == "TesselModels\n" ? 1 : 0;
    }
    return count;
}

} // namespace

/// Values that a display writes.
class tst_ProcessDataSourceWriting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writtenValueIsPublished_data();
    void writtenValueIsPublished();
    void refusedValueIsTold_data();
    void refusedValueIsTold();
    void valueThatItsSlotCannotHoldIsRefused_data();
    void valueThatItsSlotCannotHoldIsRefused();
    void valueWithoutARegionIsRefused();
    void itemHearsOfItsOwnFailureAlone();
    void writerStoppedInItsLockHoldsUpNobodyButTheWrite();
    void lockThatIsNotToBeHadIsTold();
    void valueThatIsNotPublishedIsTakenBack();
    void endOfASourceDoesNotWaitForItsWrite();
};

void tst_ProcessDataSourceWriting::writtenValueIsPublished_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariant>("written");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");

    QTest::newRow("double") << "pump/speed" << QVariant(12.25) << QVariant(12.25) << "12.25";
    QTest::newRow("double as text") << "pump/speed" << QVariant("0.5") << QVariant(0.5) << "0.5";
    QTest::newRow("text") << "pump/name" << QVariant("north") << QVariant("north") << "north";
    QTest::newRow("text of seven")
        << "pump/name" << QVariant("7777777") << QVariant("7777777") << "7777777";
    QTest::newRow("2^53 + 1") << "pump/count" << QVariant(Q_INT64_C(9007199254740993))
                              << QVariant(Q_INT64_C(9007199254740993)) << "9007199254740993";
    QTest::newRow("hexadecimal") << "pump/count" << QVariant("0x10") << QVariant(Q_INT64_C(16))
                                 << "16";
    QTest::newRow("whole number of QML")
        << "pump/count" << QVariant(5.0) << QVariant(Q_INT64_C(5)) << "5";
    QTest::newRow("selector") << "tank/mode" << QVariant(1) << QVariant(1) << "auto";
    QTest::newRow("biggest of its type")
        << "tank/small" << QVariant(255) << QVariant(255u) << "255";
    QTest::newRow("boolean") << "tank/flag" << QVariant(true) << QVariant(true) << "true";
    QTest::newRow("boolean as number") << "tank/flag" << QVariant(0) << QVariant(false) << "false";
}

void tst_ProcessDataSourceWriting::writtenValueIsPublished()
{
    QFETCH(QString, url);
    QFETCH(QVariant, written);
    QFETCH(QVariant, value);
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataItem item;
    item.setSource(&source);
    item.setUrl(url);
    QVERIFY(waitForGeneration(source, 1));
    QSignalSpy failed(&source, &ProcessDataSource::writeFailed);

    source.write(url, written);

    QVERIFY(waitForGeneration(source, 2));
    QCOMPARE(item.getValue(), value);
    QCOMPARE(item.getValue().userType(), value.userType());
    QTEST(item.getText(), "text");
    QCOMPARE(failed.count(), 0);
    QCOMPARE(region.read(url).getValue(), value);
}

void tst_ProcessDataSourceWriting::refusedValueIsTold_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariant>("written");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");

    const auto row = [](const char *name, const char *url, const QVariant &written, WriteError code,
                        const QString &text) {
        QTest::newRow(name) << url << written << static_cast<int>(code) << text;
    };
    row("no such value", "pump/none", 1, WriteError::NoSuchValue,
        QStringLiteral("'pump/none': FILE describes no such value"));
    row("node", "pump", 1, WriteError::NoSuchValue,
        QStringLiteral("'pump': FILE describes no such value"));
    row("read-only", "tank/level", 1.5, WriteError::ReadOnly,
        QStringLiteral("'tank/level' is read-only; only the process that created the region writes "
                       "it"));
    row("no number", "pump/speed", "fast", WriteError::WrongType,
        QStringLiteral("'pump/speed': 'fast' is no finite number of type double"));
    row("nan", "pump/speed", qQNaN(), WriteError::WrongType,
        QStringLiteral("'pump/speed': 'nan' is no finite number of type double"));
    row("nothing", "pump/speed", QVariant(), WriteError::WrongType,
        QStringLiteral("'pump/speed': what was given is no value"));
    row("half", "pump/count", 2.5, WriteError::WrongType,
        QStringLiteral("'pump/count': '2.5' is no int64; a whole number from -9223372036854775808 "
                       "to 9223372036854775807 is"));
    row("too big for its type", "tank/small", 256, WriteError::WrongType,
        QStringLiteral("'tank/small': '256' is no uint8; a whole number from 0 to 255 is"));
    row("negative", "tank/small", -1, WriteError::WrongType,
        QStringLiteral("'tank/small': '-1' is no uint8; a whole number from 0 to 255 is"));
    row("long text", "pump/name", "88888888", WriteError::WrongType,
        QStringLiteral("'pump/name': a text of 8 characters does not fit; 7 do"));
    row("number for a boolean", "tank/flag", 2, WriteError::WrongType,
        QStringLiteral("'tank/flag': '2' is no boolean; true, false, 1 and 0 are"));
    row("below", "pump/speed", 0.25, WriteError::OutOfRange,
        QStringLiteral("'pump/speed': 0.25 is below the lower limit, 0.5"));
    row("above", "pump/speed", 3000.5, WriteError::OutOfRange,
        QStringLiteral("'pump/speed': 3000.5 is above the upper limit, 3000"));
}

void tst_ProcessDataSourceWriting::refusedValueIsTold()
{
    QFETCH(QString, url);
    QFETCH(QVariant, written);
    QFETCH(QString, text);
    const DisplayedPlant plant;
    const HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    QVERIFY(waitForGeneration(source, 1));
    QSignalSpy failed(&source, &ProcessDataSource::writeFailed);

    source.write(url, written);

    QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 1, longestWait);
    QCOMPARE(failed.first()[0].toString(), url);
    QTEST(failed.first()[1].toInt(), "code");
    QCOMPARE(failed.first()[2].toString(), text.replace(QLatin1String("FILE"), plant.file));
    // Nothing was published.
    QCOMPARE(source.getGeneration(), quint64{1});
}

void tst_ProcessDataSourceWriting::valueThatItsSlotCannotHoldIsRefused_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariant>("written");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");

    QTest::newRow("error state in the number")
        << "odd/number" << QVariant(9e37) << static_cast<int>(WriteError::WrongType)
        << "'odd/number': 9e+37 would read back as an error state, which this slot keeps in the "
           "number";
    QTest::newRow("mask without a bit")
        << "odd/bit" << QVariant(true) << static_cast<int>(WriteError::WrongType)
        << "'odd/bit': the mask of this bit names no bit of its byte";
    QTest::newRow("zero character")
        << "pump/name" << QVariant(QString(QChar::Null)) << static_cast<int>(WriteError::WrongType)
        << "'pump/name': a text ends where its first zero character is";
    // A float is told with its own digits, not with those of the double beside it.
    QTest::newRow("below a limit")
        << "odd/number" << QVariant(0.1) << static_cast<int>(WriteError::OutOfRange)
        << "'odd/number': 0.1 is below the lower limit, 0.3";
}

void tst_ProcessDataSourceWriting::valueThatItsSlotCannotHoldIsRefused()
{
    QFETCH(QString, url);
    QFETCH(QVariant, written);
    DisplayedPlant plant;
    plant.description().add(QStringLiteral("odd/number"), QStringLiteral("float"),
                            ToolDescription::Metadata::None, 4,
                            {{QStringLiteral("minLimit"), 0.3}});
    plant.description().add(QStringLiteral("odd/bit"), QStringLiteral("bit"),
                            ToolDescription::Metadata::ErrorState, 1,
                            {{QStringLiteral("bitmask"), 0}});
    plant.description().write();
    const HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    QVERIFY(waitForGeneration(source, 1));
    QSignalSpy failed(&source, &ProcessDataSource::writeFailed);

    source.write(url, written);

    QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 1, longestWait);
    QTEST(failed.first()[1].toInt(), "code");
    QTEST(failed.first()[2].toString(), "text");
    QCOMPARE(source.getGeneration(), quint64{1});
}

void tst_ProcessDataSourceWriting::valueWithoutARegionIsRefused()
{
    const DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    QSignalSpy failed(&source, &ProcessDataSource::writeFailed);

    source.write(plant.speed, 1.5);

    QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 1, longestWait);
    QCOMPARE(failed.first()[1].toInt(), static_cast<int>(WriteError::NotConnected));
    QCOMPARE(failed.first()[2].toString(),
             QStringLiteral("'pump/speed': its region is away, or it has no usable slot"));
}

void tst_ProcessDataSourceWriting::itemHearsOfItsOwnFailureAlone()
{
    const DisplayedPlant plant;
    const HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    QVERIFY(waitForGeneration(source, 1));
    ProcessDataItem speed;
    speed.setSource(&source);
    speed.setUrl(plant.speed);
    ProcessDataItem level;
    level.setSource(&source);
    level.setUrl(plant.level);
    QSignalSpy speedFailed(&speed, &ProcessDataItem::writeFailed);
    QSignalSpy levelFailed(&level, &ProcessDataItem::writeFailed);

    level.setValue(1.5);

    QTRY_COMPARE_WITH_TIMEOUT(levelFailed.count(), 1, longestWait);
    QCOMPARE(levelFailed.first()[0].toInt(), static_cast<int>(WriteError::ReadOnly));
    QCOMPARE(speedFailed.count(), 0);
    QVERIFY(speed.isWritable());
    QVERIFY(!level.isWritable());
}

void tst_ProcessDataSourceWriting::writerStoppedInItsLockHoldsUpNobodyButTheWrite()
{
    const DisplayedPlant plant;
    StoppedWriter writer(plant.file);
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.speed, validValue(7.5)));
    QVERIFY(writer.takeLock());
    ProcessDataSource source(plant.file);
    ProcessDataItem speed;
    speed.setSource(&source);
    speed.setUrl(plant.speed);

    QVERIFY(waitForGeneration(source, 2));
    QCOMPARE(speed.getValue(), QVariant(7.5));
    speed.setValue(8.5);
    // The display asks and answers while its thread waits for the lock.
    QCOMPARE(speed.getValue(), QVariant(7.5));
    QCOMPARE(writer.goOn(), 0);

    QVERIFY(waitForGeneration(source, 3));
    QCOMPARE(speed.getValue(), QVariant(8.5));
}

void tst_ProcessDataSourceWriting::lockThatIsNotToBeHadIsTold()
{
    const DisplayedPlant plant;
    StoppedWriter writer(plant.file);
    const HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    QVERIFY(waitForGeneration(source, 1));
    QSignalSpy failed(&source, &ProcessDataSource::writeFailed);
    QVERIFY(writer.takeLock());

    source.write(plant.speed, 8.5);

    // The writer stays where it is, and its region too.
    QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 1, longestWait);
    QCOMPARE(failed.first(),
             QList<QVariant>({plant.speed, static_cast<int>(WriteError::NotPublished),
                              "'pump/speed': no lock on the region was to be had; a writer stands "
                              "still inside, 'tessel info' tells which"}));
    QVERIFY(source.isConnected());
    QCOMPARE(writer.goOn(), 0);
    source.write(plant.speed, 9.5);
    QVERIFY(waitForGeneration(source, 2));
    QCOMPARE(failed.count(), 1);
}

void tst_ProcessDataSourceWriting::valueThatIsNotPublishedIsTakenBack()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.speed, validValue(7.5)));
    ProcessDataSource source(plant.file);
    ProcessDataItem speed;
    speed.setUrl(plant.speed);
    speed.setSource(&source);
    QTRY_COMPARE_WITH_TIMEOUT(speed.property("value"), QVariant(7.5), longestWait);
    QSignalSpy failed(&source, &ProcessDataSource::writeFailed);
    {
        const RefusedSwaps refused;

        source.write(plant.speed, 8.5);

        QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 1, longestWait);
    }
    QCOMPARE(failed.first(),
             QList<QVariant>({plant.speed, static_cast<int>(WriteError::NotPublished),
                              "'pump/speed' was not published; the log has the "
                              "reason"}));
    QVERIFY(region.publish(QStringLiteral("pump/count"), validValue(Q_INT64_C(3))));
    QCOMPARE(region.read(plant.speed).toDouble(), 7.5);
}

void tst_ProcessDataSourceWriting::endOfASourceDoesNotWaitForItsWrite()
{
    const DisplayedPlant plant;
    StoppedWriter writer(plant.file);
    QTRY_COMPARE_WITH_TIMEOUT(helperThreads(), 0, longestWait);
    HeldRegion region(plant.file);
    QVERIFY(writer.takeLock());
    auto source = std::make_unique<ProcessDataSource>(plant.file);
    QVERIFY(waitForGeneration(*source, 1));
    source->write(plant.speed, 8.5);

    source.reset();

    // It waits for the lock still, or was not asked to yet.
    QVERIFY(helperThreads() > 0);
    QCOMPARE(writer.goOn(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(helperThreads(), 0, longestWait);
}

QTEST_GUILESS_MAIN(tst_ProcessDataSourceWriting)
#include "tst_ProcessDataSourceWriting.moc"
