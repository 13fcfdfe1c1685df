#include "Configuration/ConfigurationDataValue.h"
#include "ProcessDataManagement/BuilderTrees.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "support/LogCapture.h"

#include <QJsonArray>

#include <limits>

namespace {

using BuilderTrees::Base;
using BuilderTrees::NodeOfElements;
using BuilderTrees::offsetOf;
using BuilderTrees::parse;
using BuilderTrees::Root;
using BuilderTrees::untouched;

LogLine refusedOffset(const QString &variant)
{
    return warning(QStringLiteral("Key can't set. Property name: \"offsetSharedMemory\" "
                                  "Value: %1 State: 4")
                       .arg(variant));
}

} // namespace

/// The first phase of a build: offsets, in memory only.
class tst_ProcessDataBuilderDirectoryOffsets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void setPropertyTellsWhatBecameOfIt_data();
    void setPropertyTellsWhatBecameOfIt();

    void leavesFollowWithoutGaps();
    void positionsAndNotNamesGiveTheOrder();
    void rightOffsetsAreNoChange();
    void oneWrongOffsetIsAChange();
    void fileWithoutLeavesTakesNoRoom();
    void leavesAreAskedForSorted();
    void nullLeafIsRefused();
    void leafWithoutOffsetIsRefused();
    void leafWithoutSizesIsRefused_data();
    void leafWithoutSizesIsRefused();
    void leavesOfOtherClassesAreAskedForTheirSizes();
    void nodesOfOtherClassesGetWhatWasCollectedBefore();
    void absurdSizesWrapAround();
};

void tst_ProcessDataBuilderDirectoryOffsets::setPropertyTellsWhatBecameOfIt_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("result");
    QTest::addColumn<bool>("changed");
    QTest::addColumn<QString>("firstMessage");
    QTest::addColumn<QString>("message");

    QTest::newRow("another value") << "sizeValue" << QVariant(9) << true << true << ""
                                   << "";
    QTest::newRow("the same value") << "sizeValue" << QVariant(8) << true << false << ""
                                    << "";
    QTest::newRow("missing") << "missing" << QVariant(8) << false << false
                             << "Key not found \"missing\""
                             << "Key can't set. Property name: \"missing\" Value: "
                                "QVariant(int, 8) State: 4";
    QTest::newRow("missing below")
        << "map/missing" << QVariant("x") << false << false << "Key not found \"missing\""
        << "Key can't set. Property name: \"map/missing\" Value: "
           "QVariant(QString, \"x\") State: 2";
}

void tst_ProcessDataBuilderDirectoryOffsets::setPropertyTellsWhatBecameOfIt()
{
    QFETCH(QString, property);
    QFETCH(QVariant, value);
    QFETCH(QString, firstMessage);
    QFETCH(QString, message);
    QJsonObject json = Description::leaf(1, 8, 4);
    json.insert("map", QJsonObject{{"there", 1}});
    const Root leaf = parse(json);
    // Set on the way in, whatever stood there.
    bool changed = true;
    LogCapture log;

    QTEST(ProcessDataBuilder().setPropertyFromSharedMemory(leaf, property, value, changed),
          "result");

    QTEST(changed, "changed");
    if (message.isEmpty()) {
        QCOMPARE(log.take(), QList<LogLine>());
        QCOMPARE(leaf->getProperty(property).toInt(), value.toInt());
    } else {
        COMPARE_LOG(log, warning(firstMessage), warning(message));
        QCOMPARE(leaf->getProperty("sizeValue").toInt(), 8);
    }
}

void tst_ProcessDataBuilderDirectoryOffsets::leavesFollowWithoutGaps()
{
    const Root root = parse(
        Description::root({{"a", Description::leaf(1, 6, 3)},
                           {"n", Description::node({{"b", Description::leaf(1, 4, 1)}}, 2)},
                           {"c", Description::leaf(3, 8, 0)}}));
    int end = untouched;
    bool changed = false;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().setOffsetFromSharedMemory(root, 7, end, changed));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(changed);
    QCOMPARE(offsetOf(root, "a"), QVariant(7));
    QCOMPARE(offsetOf(root, "n/b"), QVariant(16));
    QCOMPARE(offsetOf(root, "c"), QVariant(21));
    // Not rounded: room between files is the caller's matter.
    QCOMPARE(end, 29);
}

void tst_ProcessDataBuilderDirectoryOffsets::positionsAndNotNamesGiveTheOrder()
{
    const Root root = parse(Description::root({{"a", Description::leaf(3, 1, 0)},
                                               {"b", Description::leaf(1, 2, 0)},
                                               {"c", Description::leaf(2, 4, 0)}}));
    int end = untouched;
    bool changed = false;

    QVERIFY(ProcessDataBuilder().setOffsetFromSharedMemory(root, 0, end, changed));

    QCOMPARE(offsetOf(root, "b"), QVariant(0));
    QCOMPARE(offsetOf(root, "c"), QVariant(2));
    QCOMPARE(offsetOf(root, "a"), QVariant(6));
    QCOMPARE(end, 7);
}

void tst_ProcessDataBuilderDirectoryOffsets::rightOffsetsAreNoChange()
{
    const Root root = parse(Description::root(
        {{"a", Description::leaf(1, 6, 3, 8)}, {"b", Description::leaf(2, 4, 1, 17)}}));
    int end = untouched;
    bool changed = true;

    QVERIFY(ProcessDataBuilder().setOffsetFromSharedMemory(root, 8, end, changed));

    QVERIFY(!changed);
    QCOMPARE(end, 22);
}

void tst_ProcessDataBuilderDirectoryOffsets::oneWrongOffsetIsAChange()
{
    const Root root = parse(Description::root(
        {{"a", Description::leaf(1, 6, 3, 1)}, {"b", Description::leaf(2, 4, 1, 9)}}));
    int end = untouched;
    bool changed = false;

    QVERIFY(ProcessDataBuilder().setOffsetFromSharedMemory(root, 0, end, changed));

    QVERIFY(changed);
    QCOMPARE(offsetOf(root, "a"), QVariant(0));
}

void tst_ProcessDataBuilderDirectoryOffsets::fileWithoutLeavesTakesNoRoom()
{
    const Root root = parse(Description::root({}));
    int end = untouched;
    bool changed = true;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().setOffsetFromSharedMemory(root, 13, end, changed));

    COMPARE_LOG(log, warning("Node has no childs!"));
    QCOMPARE(end, 13);
    QVERIFY(!changed);
}

void tst_ProcessDataBuilderDirectoryOffsets::leavesAreAskedForSorted()
{
    const Root leaf = parse(Description::leaf(1, 4, 4));
    const auto root = QSharedPointer<NodeOfElements>::create(Base::ListElements{leaf});
    int end = untouched;
    bool changed = false;

    QVERIFY(ProcessDataBuilder().setOffsetFromSharedMemory(root, 12, end, changed));

    QVERIFY(root->wasEmpty);
    QVERIFY(root->wasSorted);
    QCOMPARE(leaf->getProperty("offsetSharedMemory"), QVariant(12));
}

void tst_ProcessDataBuilderDirectoryOffsets::nullLeafIsRefused()
{
    const Root first = parse(Description::leaf(1, 4, 4));
    const Root last = parse(Description::leaf(3, 4, 4));
    const auto root = QSharedPointer<NodeOfElements>::create(
        Base::ListElements{first, Root(), last});
    int end = untouched;
    bool changed = false;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().setOffsetFromSharedMemory(root, 12, end, changed));

    COMPARE_LOG(log, warning("Element from collectElements nullpointer access"));
    QCOMPARE(first->getProperty("offsetSharedMemory"), QVariant(12));
    QCOMPARE(last->getProperty("offsetSharedMemory").toInt(), -1);
    QCOMPARE(end, 20);
    QVERIFY(changed);
}

void tst_ProcessDataBuilderDirectoryOffsets::leafWithoutOffsetIsRefused()
{
    const Root root = parse(Description::root(
        {{"a", Description::leaf(1, 4, 4)},
         {"b", Description::without(Description::leaf(2, 4, 4), "offsetSharedMemory")},
         {"c", Description::leaf(3, 4, 4)}}));
    int end = untouched;
    bool changed = false;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().setOffsetFromSharedMemory(root, 0, end, changed));

    COMPARE_LOG(log, warning("Key not found \"offsetSharedMemory\""),
                refusedOffset("QVariant(int, 8)"), warning("OffsetSharedMemory can't set"));
    QCOMPARE(offsetOf(root, "a"), QVariant(0));
    QVERIFY(!root->getLeaf(QStringLiteral("b"))->hasProperty("offsetSharedMemory"));
    QCOMPARE(offsetOf(root, "c").toInt(), -1);
}

void tst_ProcessDataBuilderDirectoryOffsets::leafWithoutSizesIsRefused_data()
{
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QString>("message");

    const QStringList both{"sizeValue", "sizeMetadata"};
    QTest::newRow("no size of the value")
        << QStringList{"sizeValue"} << QJsonValue(QJsonValue::Undefined) << "%1 %2";
    QTest::newRow("no size of the metadata")
        << QStringList{"sizeMetadata"} << QJsonValue(QJsonValue::Undefined) << "%1 %2";
    QTest::newRow("neither") << both << QJsonValue(QJsonValue::Undefined)
                             << "QVariant(Invalid) QVariant(Invalid)";
    QTest::newRow("a list") << both << QJsonValue(QJsonArray{4})
                            << "QVariant(QVariantList, (QVariant(%3, 4))) "
                               "QVariant(QVariantList, (QVariant(%3, 4)))";
}

void tst_ProcessDataBuilderDirectoryOffsets::leafWithoutSizesIsRefused()
{
    QFETCH(QStringList, keys);
    QFETCH(QJsonValue, value);
    QFETCH(QString, message);
    QJsonObject json = Description::leaf(1, 4, 4);
    for (const QString &key : qAsConst(keys)) {
        // An undefined value removes.
        json.insert(key, value);
    }
    const Root root = parse(Description::root({{"a", json}}));
    // In which type the toolkit holds a number of JSON is its own matter.
    QString number;
    QDebug(&number).nospace() << QJsonValue(4).toVariant();
    const auto shown = [&](const QString &key) {
        return keys.contains(key) ? QStringLiteral("QVariant(Invalid)") : number;
    };
    message.replace("%1", shown("sizeValue")).replace("%2", shown("sizeMetadata"));
    message.replace("%3", QString(QJsonValue(4).toVariant().typeName()));
    int end = untouched;
    bool changed = false;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().setOffsetFromSharedMemory(root, 8, end, changed));

    COMPARE_LOG(log, warning("SizeValue or sizeMethaData is not valid: " + message));
    QCOMPARE(offsetOf(root, "a"), QVariant(8));
    QVERIFY(changed);
    QCOMPARE(end, 8);
}

/// Takes more room than its description says.
class GrownLeaf : public ConfigurationDataValue
{
public:
    using ConfigurationDataValue::ConfigurationDataValue;

    QVariant getProperty(const QString &key) const override
    {
        return key == QLatin1String("sizeValue") ? QVariant(16)
                                                 : ConfigurationDataValue::getProperty(key);
    }
};

/// Though the description has the right offset already.
void tst_ProcessDataBuilderDirectoryOffsets::leavesOfOtherClassesAreAskedForTheirSizes()
{
    const Root grown = QSharedPointer<GrownLeaf>::create(
        QJsonDocument::fromJson(QJsonDocument(Description::leaf(1, 4, 4, 12)).toJson()).object(),
        nullptr);
    const Root next = parse(Description::leaf(2, 4, 4));
    const auto root = QSharedPointer<NodeOfElements>::create(Base::ListElements{grown, next});
    int end = untouched;
    bool changed = false;

    QVERIFY(ProcessDataBuilder().setOffsetFromSharedMemory(root, 12, end, changed));

    QCOMPARE(grown->getProperty("offsetSharedMemory").toInt(), 12);
    QCOMPARE(next->getProperty("offsetSharedMemory"), QVariant(32));
    QCOMPARE(end, 40);
}

/// Which leaves it was given before its own, and all of which it drops.
class DroppingNode : public ConfigurationAndProcessDataTreeNode
{
public:
    DroppingNode() : ConfigurationAndProcessDataTreeNode(Description::root({}, {}, 40), nullptr) { }

    void collectElements(ListElements &elements, bool /*sorted*/) const override
    {
        given += elements.size();
        elements.clear();
    }

    mutable int given = 0;
};

void tst_ProcessDataBuilderDirectoryOffsets::nodesOfOtherClassesGetWhatWasCollectedBefore()
{
    const QJsonObject inner = Description::node({{"b", Description::leaf(1, 4, 1)}}, 2);
    const Root root = parse(Description::root(
        {{"a", Description::leaf(1, 4, 1)}, {"node", inner}, {"c", Description::leaf(3, 4, 1)}}));
    const auto dropping = QSharedPointer<DroppingNode>::create();
    const auto node =
        root->getChildMap().value("node").dynamicCast<ConfigurationAndProcessDataTreeNode>();
    node->addElement("dropping", dropping);
    int end = untouched;
    bool changed = false;

    QVERIFY(ProcessDataBuilder().setOffsetFromSharedMemory(root, 0, end, changed));

    QCOMPARE(dropping->given, 2);
    QCOMPARE(end, 5); // that of c alone
}

void tst_ProcessDataBuilderDirectoryOffsets::absurdSizesWrapAround()
{
    const int largest = std::numeric_limits<int>::max();
    const Root root = parse(Description::root(
        {{"a", Description::leaf(1, largest, 1)}, {"b", Description::leaf(2, 4, 1)}}));
    int end = untouched;
    bool changed = false;

    QVERIFY(ProcessDataBuilder().setOffsetFromSharedMemory(root, 0, end, changed));

    QCOMPARE(offsetOf(root, "b"), QVariant(std::numeric_limits<int>::min()));
    QCOMPARE(end, std::numeric_limits<int>::min() + 5);
}

QTEST_GUILESS_MAIN(tst_ProcessDataBuilderDirectoryOffsets)
#include "tst_ProcessDataBuilderDirectoryOffsets.moc"
