#include "FollowedPlant.h"
#include "service/Refusal.h"

#include <QJsonDocument>
#include <QtTest>

namespace {

QString refusalOf(const QString &path)
{
    try {
        const RegionFollower follower(path);
    } catch (const Refusal &refusal) {
        return QStringLiteral("%1 %2").arg(QString::number(static_cast<int>(refusal.code)),
                                           refusal.text);
    }
    return {};
}

} // namespace

/// What a program of exits/ sees of a region that stays.
class tst_RegionFollower : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ServiceLog::start(QStringLiteral("tst_RegionFollower")); }
    void leavesCarryTheirDescription();
    void attachesAtOnceToARegionThatIsThere();
    void valuesAreThoseOfOneSet();
    void erroneousValueHasNoContent();
    void publishedSetIsTold();
    void singleBufferIsFollowedByLooking();
    void missingRegionIsSaid();
    void firstFoldersOfAFolderAreDevices();
    void leafWithoutASlotHasNoValue();
    void whatCannotBeFollowedIsRefused_data();
    void whatCannotBeFollowedIsRefused();
};

void tst_RegionFollower::leavesCarryTheirDescription()
{
    const FollowedPlant plant;

    const RegionFollower follower(plant.file);

    QCOMPARE(follower.key(), plant.key());
    QCOMPARE(follower.leaves().size(), 2);
    const FollowedLeaf &speed = follower.leaves()[0];
    QCOMPARE(speed.url, plant.speed);
    QCOMPARE(speed.device, QStringLiteral("plant"));
    QCOMPARE(speed.urlInDevice, plant.speed);
    QCOMPARE(speed.type, QStringLiteral("double"));
    QVERIFY(speed.kind == FollowedLeaf::Kind::Number);
    QCOMPARE(speed.unit, QStringLiteral("1/min"));
    QCOMPARE(speed.label, QStringLiteral("LABEL_SPEED"));
    QCOMPARE(speed.minLimit.value(), QVariant(0.5));
    QCOMPARE(speed.maxLimit.value(), QVariant(3000.0));
    QCOMPARE(speed.viewStart.value().toDouble(), 100.0);
    QVERIFY(!speed.viewEnd);
    QVERIFY(speed.isReadOnly);
    const FollowedLeaf &name = follower.leaves()[1];
    QVERIFY(name.kind == FollowedLeaf::Kind::Text);
    QCOMPARE(name.unit, QString());
    QVERIFY(!name.minLimit && !name.isReadOnly);
    QCOMPARE(follower.devices(), QStringList(QStringLiteral("plant")));
}

void tst_RegionFollower::attachesAtOnceToARegionThatIsThere()
{
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    QVERIFY(region.isValid());

    const RegionFollower follower(plant.file);

    QVERIFY(follower.isUp());
    QCOMPARE(follower.absence(), QString());
    QCOMPARE(follower.swapCount().value(), quint64{1});
    QVERIFY(follower.lastSwap());
    QVERIFY(follower.manager() != nullptr);
}

void tst_RegionFollower::valuesAreThoseOfOneSet()
{
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    RegionFollower follower(plant.file);
    QVERIFY(region.publish(plant.speed, validValue(7.5)));
    QVERIFY(follower.takeSet());

    QVERIFY(region.publish(plant.speed, validValue(8.5)));

    QCOMPARE(follower.value(0).toDouble(), 7.5);
    QCOMPARE(follower.set().getGeneration(), quint64{2});
    QVERIFY(follower.takeSet());
    QCOMPARE(follower.value(0).toDouble(), 8.5);
    QCOMPARE(follower.set().getGeneration(), quint64{3});
}

void tst_RegionFollower::erroneousValueHasNoContent()
{
    using namespace ProcessDataDefinitions;
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    RegionFollower follower(plant.file);
    QVERIFY(region.publish(plant.speed, ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));

    QVERIFY(follower.takeSet());

    QCOMPARE(follower.value(0).getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    QVERIFY(!follower.value(0).getValue().isValid());
    QCOMPARE(follower.value(1).getErrorType(), PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
}

void tst_RegionFollower::publishedSetIsTold()
{
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    RegionFollower follower(plant.file);
    QSignalSpy published(&follower, &RegionFollower::setPublished);
    // The set that was there before is told as well.
    QTRY_COMPARE_WITH_TIMEOUT(published.count(), 1, longestWait);

    QVERIFY(region.publish(plant.speed, validValue(1.5)));

    QTRY_COMPARE_WITH_TIMEOUT(published.count(), 2, longestWait);
}

void tst_RegionFollower::singleBufferIsFollowedByLooking()
{
    FollowedPlant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), false);
    const QString file = plant.description().write();
    HeldRegion region(file);
    RegionFollower follower(file);
    QSignalSpy published(&follower, &RegionFollower::setPublished);
    QVERIFY(region.write(plant.speed, validValue(2.5)));

    QVERIFY(follower.isUp());
    QVERIFY(follower.takeSet());
    QCOMPARE(follower.value(0).toDouble(), 2.5);
    QVERIFY(!follower.swapCount());
    QTRY_VERIFY_WITH_TIMEOUT(published.count() >= 1, longestWait);
}

void tst_RegionFollower::missingRegionIsSaid()
{
    const FollowedPlant plant;

    RegionFollower follower(plant.file);

    QVERIFY(!follower.isUp());
    QCOMPARE(follower.absence(), QStringLiteral("no region '%1' is there; waiting for the process "
                                                "that creates it")
                                     .arg(plant.key()));
    QVERIFY(!follower.takeSet());
    QVERIFY(follower.set().isEmpty());
    QCOMPARE(follower.value(0).getErrorType(),
             ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    QVERIFY(!follower.swapCount() && !follower.lastSwap());
    QVERIFY(follower.manager() == nullptr);
}

void tst_RegionFollower::firstFoldersOfAFolderAreDevices()
{
    const QTemporaryDir folder;
    ToolDescription one;
    one.add(QStringLiteral("speed"), QStringLiteral("float"), ToolDescription::Metadata::ErrorState,
            4);
    const QString text = one.write();
    for (const char *device : {"boiler", "pump"}) {
        const QString path = folder.filePath(QLatin1String(device));
        QVERIFY(QDir().mkpath(path));
        QVERIFY(QFile::copy(text, path + QStringLiteral("/motor.process.json")));
    }
    QCOMPARE(runTool({QStringLiteral("build"), folder.path()}).exitCode, 0);

    const RegionFollower follower(folder.path());

    QCOMPARE(follower.devices(), (QStringList{QStringLiteral("boiler"), QStringLiteral("pump")}));
    QCOMPARE(follower.leaves()[1].url, QStringLiteral("pump/motor/speed"));
    QCOMPARE(follower.leaves()[1].device, QStringLiteral("pump"));
    QCOMPARE(follower.leaves()[1].urlInDevice, QStringLiteral("motor/speed"));
}

void tst_RegionFollower::leafWithoutASlotHasNoValue()
{
    FollowedPlant plant;
    plant.description().add(QStringLiteral("pump/odd"), QStringLiteral("double"),
                            ToolDescription::Metadata::None, 8, {{QStringLiteral("sizeValue"), 3}});
    const QString file = plant.description().write();
    HeldRegion region(file);
    RegionFollower follower(file);

    QVERIFY(follower.takeSet());

    QCOMPARE(follower.leaves()[2].url, QStringLiteral("pump/odd"));
    QVERIFY(follower.leaves()[2].element.isNull());
    QCOMPARE(follower.value(2).getErrorType(),
             ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
}

void tst_RegionFollower::whatCannotBeFollowedIsRefused_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("refusal");

    QTest::newRow("no JSON") << QByteArray("{")
                             << QStringLiteral("^9 .*odd.process.json: cannot be parsed: .*; "
                                               "'tessel validate' shows where$");
    QTest::newRow("no memory")
        << QByteArray(R"({"type": "treenode", "value": {"a": {"type": "float"}}})")
        << QStringLiteral("^9 .*odd.process.json: describes no memory to follow; lay it out with "
                          "'tessel build'$");
    QTest::newRow("no leaf") << QByteArray(
        R"({"type": "treenode", "value": {}, "keyProcessDataMemory": "k",)"
        R"( "sizeOfSharedMemory": 8, "doubleBuffer": true})")
                             << QStringLiteral("^9 .*odd.process.json: holds no process value$");
    QTest::newRow("no file") << QByteArray()
                             << QStringLiteral("^3 .*odd.process.json: no such description file "
                                               "or folder$");
}

void tst_RegionFollower::whatCannotBeFollowedIsRefused()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, refusal);
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("odd.process.json"));
    if (!text.isEmpty()) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text);
    }

    const QString refused = refusalOf(path);

    QVERIFY2(QRegularExpression(refusal).match(refused).hasMatch(), qPrintable(refused));
}

QTEST_GUILESS_MAIN(tst_RegionFollower)
#include "tst_RegionFollower.moc"
