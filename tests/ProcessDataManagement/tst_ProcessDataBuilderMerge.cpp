#include "ProcessDataManagement/BuilderTrees.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "support/LogCapture.h"

#include <QSignalSpy>

#include <limits>

namespace {

using BuilderTrees::makePart;
using BuilderTrees::makeRoot;
using BuilderTrees::NodeOfElements;
using BuilderTrees::offsetOf;
using BuilderTrees::parse;
using BuilderTrees::Root;
using BuilderTrees::sizeOf;
using BuilderTrees::threeLeaves;
using BuilderTrees::toJson;
using BuilderTrees::untouched;

const QString sizeKey = QStringLiteral("sizeOfSharedMemory");
const QString offsetKey = QStringLiteral("offsetSharedMemory");
const QString positionKey = QStringLiteral("displayPosition");
const QString memoryKey = QStringLiteral("keyProcessDataMemory");

} // namespace

class tst_ProcessDataBuilderMerge : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void partGoesBehindTheRoot();
    void onlyOffsetSizePositionAndKeyChange();
    void rootOfSizeZeroRunsAllSteps();
    void sizesAreNotRounded();
    void secondPartOfANameReplacesTheFirst();
    void absurdSizesWrapAround();
    void movedOffsetsAreSignalled();

    void nullElementsAreRefused_data();
    void nullElementsAreRefused();
    void partWithoutLeavesIsRefused();
    void partThatGivesNoLeavesHasOneMessage();
    void leafAsPartIsRefused();
    void rootWithoutSizeIsRefused();
    void leafWithoutOffsetStopsInTheMiddle();
    void partWithoutSizeKeepsItsMovedOffsets();
    void leafAsRootFailsAfterAllOtherSteps();
};

void tst_ProcessDataBuilderMerge::partGoesBehindTheRoot()
{
    Root root = makeRoot(100);
    Root part = makePart(40);
    int size = untouched;
    int offset = untouched;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(size, 40);
    QCOMPARE(offset, 100);
    QCOMPARE(sizeOf(root), 140);
    QCOMPARE(root->getNumberOfChilds(), 2);
    QCOMPARE(root->getLeaf(QStringLiteral("part")), part);
    QCOMPARE(offsetOf(root, "part/a").toInt(), 100);
    QCOMPARE(offsetOf(root, "part/b").toInt(), 116);
    QCOMPARE(offsetOf(root, "part/n/c").toInt(), 120);
    QCOMPARE(offsetOf(root, "own").toInt(), 0);
}

void tst_ProcessDataBuilderMerge::onlyOffsetSizePositionAndKeyChange()
{
    Root root = makeRoot(100);
    Root part = makePart(40);
    const QJsonObject formerRoot = toJson(root);
    const QJsonObject formerPart = toJson(part);
    int size = 0;
    int offset = 0;

    QVERIFY(ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    QJsonObject moved = threeLeaves();
    moved.insert("a", Description::leaf(1, 16, 0, 100));
    moved.insert("b", Description::leaf(2, 4, 0, 116));
    moved.insert("n", Description::node({{"c", Description::leaf(1, 4, 0, 120)}}, 3));
    const QJsonObject expectedPart = Description::without(
        Description::with(Description::with(formerPart, "value", moved), positionKey, 1),
        memoryKey);
    QCOMPARE(toJson(part), expectedPart);
    QJsonObject children = formerRoot.value("value").toObject();
    children.insert("part", expectedPart);
    QCOMPARE(toJson(root),
             Description::with(Description::with(formerRoot, "value", children), sizeKey, 140));
}

void tst_ProcessDataBuilderMerge::rootOfSizeZeroRunsAllSteps()
{
    Root root = parse(Description::root({}, "root key", 0));
    Root part = makePart(24);
    int size = untouched;
    int offset = untouched;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(size, 24);
    QCOMPARE(offset, 0);
    QCOMPARE(sizeOf(root), 24);
    QCOMPARE(offsetOf(root, "part/a").toInt(), 0);
    QCOMPARE(offsetOf(root, "part/b").toInt(), 16);
    QCOMPARE(offsetOf(root, "part/n/c").toInt(), 20);
    QCOMPARE(part->getProperty(positionKey).toInt(), 0);
    QVERIFY(!part->hasProperty(memoryKey));
    QCOMPARE(root->getProperty(memoryKey).toString(), QString("root key"));
}

void tst_ProcessDataBuilderMerge::sizesAreNotRounded()
{
    Root root = makeRoot(100);
    Root first = makePart(41);
    Root second = makePart(40);
    int size = 0;
    int offset = 0;

    QVERIFY(ProcessDataBuilder().buildProcessData(root, first, "first", size, offset));
    QCOMPARE(size, 41);
    QVERIFY(ProcessDataBuilder().buildProcessData(root, second, "second", size, offset));

    QCOMPARE(offset, 141);
    QCOMPARE(sizeOf(root), 181);
    QCOMPARE(offsetOf(root, "second/a").toInt(), 141);
    QCOMPARE(offsetOf(root, "first/a").toInt(), 100);
    QCOMPARE(first->getProperty(positionKey).toInt(), 1);
    QCOMPARE(second->getProperty(positionKey).toInt(), 2);
}

void tst_ProcessDataBuilderMerge::secondPartOfANameReplacesTheFirst()
{
    Root root = makeRoot(100);
    Root first = makePart(40);
    Root second = makePart(28);
    int size = 0;
    int offset = 0;
    QVERIFY(ProcessDataBuilder().buildProcessData(root, first, "part", size, offset));
    LogCapture log;

    QVERIFY(ProcessDataBuilder().buildProcessData(root, second, "part", size, offset));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getNumberOfChilds(), 2);
    QCOMPARE(root->getLeaf(QStringLiteral("part")), second);
    QCOMPARE(sizeOf(root), 168);
    QCOMPARE(size, 28);
    QCOMPARE(offset, 140);
    // Taken before the place of the first is free again.
    QCOMPARE(second->getProperty(positionKey).toInt(), 2);
}

void tst_ProcessDataBuilderMerge::absurdSizesWrapAround()
{
    const int largest = std::numeric_limits<int>::max();
    const int smallest = std::numeric_limits<int>::min();
    Root root = makeRoot(largest);
    Root part = makePart(1);
    int size = untouched;
    int offset = untouched;

    QVERIFY(ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    QCOMPARE(offset, largest);
    QCOMPARE(offsetOf(root, "part/a").toInt(), largest);
    QCOMPARE(offsetOf(root, "part/b").toInt(), smallest + 15);
    QCOMPARE(sizeOf(root), smallest);
}

void tst_ProcessDataBuilderMerge::movedOffsetsAreSignalled()
{
    Root root = makeRoot(100);
    Root part = makePart(40);
    const QSignalSpy leafSpy(part->getLeaf(QStringLiteral("b")).data(),
                             SIGNAL(propertyChanged(QString, QVariant)));
    const QSignalSpy rootSpy(root.data(), SIGNAL(propertyChanged(QString, QVariant)));
    int size = 0;
    int offset = 0;

    QVERIFY(ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    QCOMPARE(QList<QVariantList>(leafSpy), (QList<QVariantList>{{offsetKey, 116}}));
    QCOMPARE(QList<QVariantList>(rootSpy), (QList<QVariantList>{{sizeKey, 140}}));
}

void tst_ProcessDataBuilderMerge::nullElementsAreRefused_data()
{
    QTest::addColumn<bool>("hasRoot");
    QTest::addColumn<bool>("hasPart");
    QTest::addColumn<QString>("message");

    QTest::newRow("no root") << false << true << "Root element is 0.";
    QTest::newRow("no part") << true << false << "Part element is 0.";
    QTest::newRow("neither") << false << false << "Root element is 0.";
}

void tst_ProcessDataBuilderMerge::nullElementsAreRefused()
{
    QFETCH(bool, hasRoot);
    QFETCH(bool, hasPart);
    QFETCH(QString, message);
    const ProcessDataBuilder builder;
    Root root = hasRoot ? makeRoot(100) : Root();
    Root part = hasPart ? makePart(40) : Root();
    int size = untouched;
    int offset = untouched;
    LogCapture log;

    QVERIFY(!builder.buildProcessData(root, part, "part", size, offset));
    COMPARE_LOG(log, warning(message));
    QCOMPARE(size, untouched);
    QCOMPARE(offset, untouched);

    QVERIFY(!builder.adaptOffsetOfSharedMemoryInPart(root, part, offset));
    COMPARE_LOG(log, warning(message));
    QCOMPARE(offset, 0);
    QVERIFY(!builder.adaptSizeOfSharedMemoryInRoot(root, part, size));
    COMPARE_LOG(log, warning(message));
    QCOMPARE(size, 0);
    QVERIFY(!builder.addAndRemovePropertiesForTreeNodeInPart(root, part));
    COMPARE_LOG(log, warning(message));
    QVERIFY(!builder.addPartToRoot(root, part, "part"));
    COMPARE_LOG(log, warning(message));

    QCOMPARE(root.isNull(), !hasRoot);
    QCOMPARE(part.isNull(), !hasPart);
    QVERIFY(!hasRoot || toJson(root) == toJson(makeRoot(100)));
    QVERIFY(!hasPart || toJson(part) == toJson(makePart(40)));
}

void tst_ProcessDataBuilderMerge::partWithoutLeavesIsRefused()
{
    Root root = makeRoot(100);
    Root part = parse(Description::root({}, "part key", 40));
    int size = untouched;
    int offset = untouched;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    // The first line is the empty node's own.
    COMPARE_LOG(log, warning("Node has no childs!"),
                warning("Can not adapt offset of shared memory in part."));
    QCOMPARE(toJson(root), toJson(makeRoot(100)));
    QCOMPARE(part->getProperty(memoryKey).toString(), QString("part key"));
    QCOMPARE(size, untouched);
    QCOMPARE(offset, 100);
}

void tst_ProcessDataBuilderMerge::partThatGivesNoLeavesHasOneMessage()
{
    Root root = makeRoot(100);
    Root part = QSharedPointer<NodeOfElements>::create();
    int size = untouched;
    int offset = untouched;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    COMPARE_LOG(log, warning("Can not adapt offset of shared memory in part."));
    QVERIFY(!ProcessDataBuilder().adaptOffsetOfSharedMemoryInPart(root, part, offset));
    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(toJson(root), toJson(makeRoot(100)));
}

void tst_ProcessDataBuilderMerge::leafAsPartIsRefused()
{
    Root root = makeRoot(100);
    Root part = parse(Description::leaf(1, 4, 4, 0));
    int size = untouched;
    int offset = untouched;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    COMPARE_LOG(log, warning("Child map not empty and not of type treenode!"),
                warning("Can not adapt offset of shared memory in part."));
    QCOMPARE(toJson(root), toJson(makeRoot(100)));
    QCOMPARE(part->getProperty(offsetKey).toInt(), 0);
}

void tst_ProcessDataBuilderMerge::rootWithoutSizeIsRefused()
{
    Root root = makeRoot(100);
    root->removeProperties({sizeKey});
    const QJsonObject formerRoot = toJson(root);
    Root part = makePart(40);
    int size = untouched;
    int offset = untouched;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    COMPARE_LOG(log, warning("No property: \"sizeOfSharedMemory\""),
                warning("Can not adapt offset of shared memory in part."));
    QCOMPARE(offset, 0);
    QCOMPARE(size, untouched);
    QCOMPARE(toJson(root), formerRoot);
    QCOMPARE(toJson(part), toJson(makePart(40)));
}

void tst_ProcessDataBuilderMerge::leafWithoutOffsetStopsInTheMiddle()
{
    Root root = makeRoot(100);
    Root part = makePart(40);
    part->getLeaf(QStringLiteral("b"))->removeProperties({offsetKey});
    int size = untouched;
    int offset = untouched;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    COMPARE_LOG(log, warning("Offset is not valid."),
                warning("Can not adapt offset of shared memory in part."));
    QCOMPARE(offsetOf(part, "a").toInt(), 100);
    QCOMPARE(offsetOf(part, "n/c").toInt(), 20);
    QVERIFY(!part->getLeaf(QStringLiteral("b"))->hasProperty(offsetKey));
    QCOMPARE(toJson(root), toJson(makeRoot(100)));
    QCOMPARE(size, untouched);
    QCOMPARE(offset, 100);
    QCOMPARE(part->getProperty(memoryKey).toString(), QString("part key"));
}

void tst_ProcessDataBuilderMerge::partWithoutSizeKeepsItsMovedOffsets()
{
    Root root = makeRoot(100);
    Root part = makePart(40);
    part->removeProperties({sizeKey});
    int size = untouched;
    int offset = untouched;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    COMPARE_LOG(log, warning("No property in part: \"sizeOfSharedMemory\""),
                warning("Can not adapt size of shared memory in root."));
    QCOMPARE(size, 0);
    QCOMPARE(offset, 100);
    QCOMPARE(offsetOf(part, "b").toInt(), 116);
    QCOMPARE(part->getProperty(memoryKey).toString(), QString("part key"));
    QCOMPARE(toJson(root), toJson(makeRoot(100)));
}

void tst_ProcessDataBuilderMerge::leafAsRootFailsAfterAllOtherSteps()
{
    Root root = parse(Description::with(Description::leaf(1, 4, 4, 0), sizeKey, 100));
    Root part = makePart(40);
    int size = untouched;
    int offset = untouched;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    COMPARE_LOG(log, warning("Root can not be casted to a tree node."),
                warning("Can not add part to root."));
    QCOMPARE(sizeOf(root), 140);
    QCOMPARE(size, 40);
    QCOMPARE(offset, 100);
    QCOMPARE(offsetOf(part, "a").toInt(), 100);
    QCOMPARE(part->getProperty(positionKey).toInt(), 0);
    QVERIFY(!part->hasProperty(memoryKey));
}

QTEST_GUILESS_MAIN(tst_ProcessDataBuilderMerge)
#include "tst_ProcessDataBuilderMerge.moc"
