#include "ProcessDataManagement/BuilderTrees.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "support/LogCapture.h"

namespace {

using BuilderTrees::Base;
using BuilderTrees::makePart;
using BuilderTrees::makeRoot;
using BuilderTrees::NodeOfElements;
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

/// The steps of a merge by themselves.
class tst_ProcessDataBuilderMergeSteps : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void leavesAreAskedForSorted();
    void sizeAsksTheRootFirst();
    void sizeIsTheSumOfBoth();
    void positionIsTheNumberOfChildren();
    void partWithoutPositionGetsNone();
    void rootWithoutMemoryKeyIsNoMatter();
    void addedPartStandsUnderItsName();
    void addingToALeafIsRefused();
};

void tst_ProcessDataBuilderMergeSteps::leavesAreAskedForSorted()
{
    const Root root = makeRoot(100);
    const Root leaf = parse(Description::leaf(1, 4, 4, 8));
    const auto node = QSharedPointer<NodeOfElements>::create(Base::ListElements{leaf});
    Root part = node;
    int offset = untouched;

    QVERIFY(ProcessDataBuilder().adaptOffsetOfSharedMemoryInPart(root, part, offset));

    QVERIFY(node->wasEmpty);
    QVERIFY(node->wasSorted);
    QCOMPARE(leaf->getProperty(offsetKey), QVariant(108));
}

void tst_ProcessDataBuilderMergeSteps::sizeAsksTheRootFirst()
{
    Root root = makeRoot(100);
    Root part = makePart(40);
    root->removeProperties({sizeKey});
    part->removeProperties({sizeKey});
    int size = untouched;
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().adaptSizeOfSharedMemoryInRoot(root, part, size));

    COMPARE_LOG(log, warning("No property in root: \"sizeOfSharedMemory\""));
    QCOMPARE(size, 0);
}

void tst_ProcessDataBuilderMergeSteps::sizeIsTheSumOfBoth()
{
    Root root = makeRoot(100);
    const Root part = makePart(40);
    int size = untouched;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().adaptSizeOfSharedMemoryInRoot(root, part, size));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(size, 40);
    QCOMPARE(root->getProperty(sizeKey), QVariant(140));
    QCOMPARE(toJson(part), toJson(makePart(40)));
}

void tst_ProcessDataBuilderMergeSteps::positionIsTheNumberOfChildren()
{
    const Root root = parse(Description::root(threeLeaves(), "root key", 40));
    Root part = makePart(40);
    LogCapture log;

    QVERIFY(ProcessDataBuilder().addAndRemovePropertiesForTreeNodeInPart(root, part));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(part->getProperty(positionKey), QVariant(3));
    QVERIFY(!part->hasProperty(memoryKey));
    QCOMPARE(root->getProperty(memoryKey).toString(), QString("root key"));
}

void tst_ProcessDataBuilderMergeSteps::partWithoutPositionGetsNone()
{
    Root root = makeRoot(100);
    Root part = makePart(40);
    part->removeProperties({positionKey});
    int size = 0;
    int offset = 0;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    COMPARE_LOG(log, warning("Key not found \"displayPosition\""));
    QVERIFY(!part->hasProperty(positionKey));
    QCOMPARE(root->getLeaf(QStringLiteral("part")), part);
}

void tst_ProcessDataBuilderMergeSteps::rootWithoutMemoryKeyIsNoMatter()
{
    Root root = makeRoot(100);
    Root part = makePart(40);
    root->removeProperties({memoryKey});
    part->removeProperties({memoryKey});
    int size = 0;
    int offset = 0;
    LogCapture log;

    QVERIFY(ProcessDataBuilder().buildProcessData(root, part, "part", size, offset));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(!root->hasProperty(memoryKey));
}

void tst_ProcessDataBuilderMergeSteps::addedPartStandsUnderItsName()
{
    Root root = makeRoot(100);
    const Root part = makePart(40);
    LogCapture log;

    QVERIFY(ProcessDataBuilder().addPartToRoot(root, part, "part"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getChildMap().value("part"), part);
    QCOMPARE(root->getNumberOfChilds(), 2);
    QCOMPARE(toJson(part), toJson(makePart(40)));
    QCOMPARE(sizeOf(root), 100);
}

void tst_ProcessDataBuilderMergeSteps::addingToALeafIsRefused()
{
    Root root = parse(Description::leaf(1, 4, 4, 0));
    LogCapture log;

    QVERIFY(!ProcessDataBuilder().addPartToRoot(root, makePart(40), "part"));

    COMPARE_LOG(log, warning("Root can not be casted to a tree node."));
    QCOMPARE(root->getNumberOfChilds(), 0);
}

QTEST_GUILESS_MAIN(tst_ProcessDataBuilderMergeSteps)
#include "tst_ProcessDataBuilderMergeSteps.moc"
