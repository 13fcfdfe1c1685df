#include "DisplayedPlant.h"
#include "TesselModels/ProcessDataItem.h"

#include <memory>

/// One value for bindings.
class tst_ProcessDataItem : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void itemWithoutASourceHasNoInput();
    void itemCarriesItsDescription();
    void erroneousValueIsUndefined();
    void textsOfValues();
    void valueThatStaysIsNotTold();
    void nanThatStaysIsNotTold();
    void otherUrlIsShown();
    void itemOutlivesItsSource();
};

void tst_ProcessDataItem::itemWithoutASourceHasNoInput()
{
    ProcessDataItem item;
    item.setUrl(QStringLiteral("pump/speed"));

    QVERIFY(!item.getValue().isValid());
    QCOMPARE(item.getState(), 3);
    QCOMPARE(item.getStateName(), QStringLiteral("no-input"));
    QCOMPARE(item.getText(), QStringLiteral("-----"));
    QCOMPARE(item.getName(), QStringLiteral("speed"));
    QVERIFY(!item.isValid());
    QVERIFY(!item.isWritable());
}

void tst_ProcessDataItem::itemCarriesItsDescription()
{
    const DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    ProcessDataItem item;
    item.setSource(&source);
    item.setUrl(plant.speed);
    QSignalSpy described(&item, &ProcessDataItem::descriptionChanged);

    QVERIFY(described.wait(longestWait));

    QCOMPARE(item.getUnit(), QStringLiteral("1/min"));
    QCOMPARE(item.getType(), QStringLiteral("double"));
    QCOMPARE(item.getLabel(), QStringLiteral("LABEL_SPEED"));
    QCOMPARE(item.getMinimum(), QVariant(0.5));
    QCOMPARE(item.getMaximum(), QVariant(3000.0));
    item.setUrl(plant.name);
    QCOMPARE(item.getUnit(), QString());
    QVERIFY(!item.getMinimum().isValid());
    QCOMPARE(described.count(), 2);
}

void tst_ProcessDataItem::erroneousValueIsUndefined()
{
    using namespace ProcessDataDefinitions;
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataItem item;
    item.setSource(&source);
    item.setUrl(plant.speed);
    QVERIFY(region.publish(plant.speed, validValue(1.0)));
    QVERIFY(waitForGeneration(source, 2));
    QVERIFY(item.isValid());

    QVERIFY(region.publish(plant.speed, ProcessValue(PROCESS_VALUE_ERROR_TYPE_OVERRANGE)));
    QVERIFY(waitForGeneration(source, 3));

    QVERIFY(!item.getValue().isValid());
    QVERIFY(!item.isValid());
    QCOMPARE(item.getState(), static_cast<int>(TesselModels::State::Overrange));
    QCOMPARE(item.getStateName(), QStringLiteral("overrange"));
    QCOMPARE(item.getText(), QStringLiteral("^^^^^"));
    QVERIFY(item.isWritable());
}

void tst_ProcessDataItem::textsOfValues()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataItem item;
    item.setSource(&source);
    const QMap<QString, ProcessValue> values{
        {plant.speed, validValue(0.1)},
        {plant.count, validValue(Q_INT64_C(-9223372036854775807) - 1)},
        {plant.level, validValue(0.1F)},
        {plant.mode, validValue(7)}};
    QVERIFY(publishSet(region, values));
    QVERIFY(waitForGeneration(source, 2));

    const auto textOf = [&](const QString &url) {
        item.setUrl(url);
        return item.getText();
    };
    QCOMPARE(textOf(plant.speed), QStringLiteral("0.1"));
    QCOMPARE(textOf(plant.count), QStringLiteral("-9223372036854775808"));
    QCOMPARE(textOf(plant.level), QStringLiteral("0.1"));
    // Beyond the selection.
    QCOMPARE(textOf(plant.mode), QStringLiteral("7"));
}

void tst_ProcessDataItem::valueThatStaysIsNotTold()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataItem name;
    name.setSource(&source);
    name.setUrl(plant.name);
    QVERIFY(region.publish(plant.name, validValue(QStringLiteral("north"))));
    QVERIFY(waitForGeneration(source, 2));
    QSignalSpy changed(&name, &ProcessDataItem::valueChanged);

    QVERIFY(region.publish(plant.name, validValue(QStringLiteral("north"))));
    QVERIFY(waitForGeneration(source, 3));
    QCOMPARE(changed.count(), 0);
    QVERIFY(region.publish(plant.name, validValue(QStringLiteral("south"))));
    QVERIFY(waitForGeneration(source, 4));

    QCOMPARE(changed.count(), 1);
    QCOMPARE(name.getText(), QStringLiteral("south"));
}

void tst_ProcessDataItem::nanThatStaysIsNotTold()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataItem speed;
    speed.setSource(&source);
    speed.setUrl(plant.speed);
    QVERIFY(region.publish(plant.speed, validValue(qQNaN())));
    QVERIFY(waitForGeneration(source, 2));
    QVERIFY(speed.isValid());
    QCOMPARE(speed.getText(), QStringLiteral("nan"));
    QSignalSpy changed(&speed, &ProcessDataItem::valueChanged);

    QVERIFY(region.publish(plant.speed, validValue(qQNaN())));
    QVERIFY(waitForGeneration(source, 3));

    QCOMPARE(changed.count(), 0);
}

void tst_ProcessDataItem::otherUrlIsShown()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataItem item;
    item.setSource(&source);
    item.setUrl(plant.speed);
    QVERIFY(region.publish(plant.name, validValue(QStringLiteral("north"))));
    QVERIFY(waitForGeneration(source, 2));
    QSignalSpy changed(&item, &ProcessDataItem::valueChanged);

    item.setUrl(plant.name);

    QCOMPARE(changed.count(), 1);
    QCOMPARE(item.getValue(), QVariant(QStringLiteral("north")));
    item.setUrl(QStringLiteral("pump/none"));
    QVERIFY(!item.getValue().isValid());
    QVERIFY(!item.isWritable());
}

void tst_ProcessDataItem::itemOutlivesItsSource()
{
    const DisplayedPlant plant;
    const HeldRegion region(plant.file);
    auto source = std::make_unique<ProcessDataSource>(plant.file);
    ProcessDataItem item;
    item.setSource(source.get());
    item.setUrl(plant.speed);
    QVERIFY(waitForGeneration(*source, 1));
    QSignalSpy changed(&item, &ProcessDataItem::sourceChanged);

    source.reset();

    QVERIFY(item.getSource() == nullptr);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(item.getState(), 3);
    item.setValue(5.0);
}

QTEST_GUILESS_MAIN(tst_ProcessDataItem)
#include "tst_ProcessDataItem.moc"
