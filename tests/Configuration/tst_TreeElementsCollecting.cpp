#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QRandomGenerator>
#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Leaf = ConfigurationDataValue;
using Element = Base::BaseClassSharedPointer;
using ListElements = Base::ListElements;

namespace {

const LogLine noChilds = warning("Node has no childs!");
const LogLine noValue = warning("Key has no value!");
const LogLine noTreeNode = warning("Child map not empty and not of type treenode!");
const LogLine noPosition = warning("Object contains no valid element \"displayPosition\"");

Element makeLeaf()
{
    return Element(new Leaf({{"type", "int32"}}, nullptr));
}

Element makeLeaf(const QJsonValue &position)
{
    return Element(new Leaf({{"type", "int32"}, {"displayPosition", position}}, nullptr));
}

QSharedPointer<TreeNode> makeNode()
{
    return QSharedPointer<TreeNode>::create(QJsonObject{{"type", "treenode"}}, nullptr);
}

QSharedPointer<TreeNode> makeNode(int position)
{
    return QSharedPointer<TreeNode>::create(
        QJsonObject{{"type", "treenode"}, {"displayPosition", position}}, nullptr);
}

/// Says that it is a tree node and notes what it is asked for.
class CollectRecorder : public Base
{
public:
    CollectRecorder() : Base(QJsonObject{{"type", "treenode"}}, nullptr) { }

    void collectElements(ListElements &elements, bool sorted) const override
    {
        m_sortedFlags.append(sorted);
        elements.append(Element());
    }

    void collectUrlsOfElements(QStringList &urls, QString &prefix) const override
    {
        urls.append(QStringLiteral("under ") + prefix);
    }

    mutable QList<bool> m_sortedFlags;
};

} // namespace

class tst_TreeElementsCollecting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anEmptyNodeWarnsAndLeavesTheListAlone();
    void aLeafCannotBeginACollection();
    void theListIsAppendedTo();
    void onlyLeavesAreCollectedDepthFirst();
    void theUnsortedOrderIsThatOfTheChildMap();
    void sortingGoesByPositionAmongSiblings();
    void sortingIsOffWithoutTheFlag();
    void nodesWithoutPositionGiveNoMessage();
    void twoLeavesWithoutPositionWarn();
    void oneChildIsNeverCompared();
    void childrenThatSayTreeNodeAreEnteredByTheVirtualOperation();
    void aLeafThatSaysTreeNodeIsNotCollected();
    void aNodeThatSaysOtherwiseIsALeaf();
    void nullChildrenAreLeftOutOfTheCollection_data();
    void nullChildrenAreLeftOutOfTheCollection();
    void incompletePositionsDoNotLoseElements();
};

void tst_TreeElementsCollecting::anEmptyNodeWarnsAndLeavesTheListAlone()
{
    const auto root = makeNode();
    ListElements elements{Element(root)};
    QStringList urls{"former"};
    QString prefix = "p";
    LogCapture log;

    root->collectElements(elements, false);
    COMPARE_LOG(log, noChilds);
    root->collectElements(elements, true);
    COMPARE_LOG(log, noChilds);
    root->collectUrlsOfElements(urls, prefix);
    COMPARE_LOG(log, noChilds);

    QCOMPARE(elements, ListElements{Element(root)});
    QCOMPARE(urls, QStringList{"former"});
    QCOMPARE(prefix, QString("p"));
}

void tst_TreeElementsCollecting::aLeafCannotBeginACollection()
{
    const Element leaf = makeLeaf();
    const Base base({{"type", "treenode"}}, nullptr);
    ListElements elements;
    QStringList urls;
    QString prefix = "p";
    LogCapture log;

    leaf->collectElements(elements, true);
    COMPARE_LOG(log, noTreeNode);
    leaf->collectUrlsOfElements(urls, prefix);
    COMPARE_LOG(log, noTreeNode);
    base.collectElements(elements, false);
    COMPARE_LOG(log, noTreeNode);

    QVERIFY(elements.isEmpty());
    QVERIFY(urls.isEmpty());
    QCOMPARE(prefix, QString("p"));
}

void tst_TreeElementsCollecting::theListIsAppendedTo()
{
    const auto root = makeNode();
    const Element leaf = makeLeaf();
    root->addElement("a", leaf);
    ListElements elements{Element(root)};
    QStringList urls{"former"};
    QString prefix;

    root->collectElements(elements, true);
    root->collectUrlsOfElements(urls, prefix);

    QCOMPARE(elements, (ListElements{Element(root), leaf}));
    QCOMPARE(urls, (QStringList{"former", "/a"}));
}

void tst_TreeElementsCollecting::onlyLeavesAreCollectedDepthFirst()
{
    const auto root = makeNode();
    const auto node = makeNode(2);
    const auto inner = makeNode(1);
    const Element first = makeLeaf(1);
    const Element second = makeLeaf(9);
    const Element third = makeLeaf(10);
    const Element last = makeLeaf(3);
    root->addElement("z", first);
    root->addElement("m", node);
    root->addElement("a", last);
    node->addElement("inner", inner);
    node->addElement("b", third);
    inner->addElement("c", second);
    ListElements elements;
    LogCapture log;

    root->collectElements(elements, true);

    QCOMPARE(elements, (ListElements{first, second, third, last}));
    COMPARE_LOG(log);
}

void tst_TreeElementsCollecting::theUnsortedOrderIsThatOfTheChildMap()
{
    const auto root = makeNode();
    for (int i = 0; i < 20; ++i) {
        root->addElement(QString::number(i), makeLeaf(20 - i));
    }
    ListElements elements;
    LogCapture log;

    root->collectElements(elements, false);

    QCOMPARE(elements, ListElements(root->getChildMap().values()));
    COMPARE_LOG(log);
}

void tst_TreeElementsCollecting::sortingGoesByPositionAmongSiblings()
{
    const auto root = makeNode();
    QMap<int, Element> byPosition;
    for (int i = 0; i < 200; ++i) {
        const int position = (i * 37) % 211 - 100;
        byPosition.insert(position, makeLeaf(position));
        root->addElement(QString::number(i), byPosition.value(position));
    }
    ListElements elements;
    LogCapture log;

    root->collectElements(elements, true);

    QCOMPARE(elements, ListElements(byPosition.values()));
    COMPARE_LOG(log);
}

void tst_TreeElementsCollecting::sortingIsOffWithoutTheFlag()
{
    const auto root = makeNode();
    root->addElement("a", makeLeaf());
    root->addElement("b", makeLeaf());
    ListElements elements;
    LogCapture log;

    root->collectElements(elements, false);

    QCOMPARE(elements.size(), 2);
    COMPARE_LOG(log);
}

void tst_TreeElementsCollecting::nodesWithoutPositionGiveNoMessage()
{
    const auto root = makeNode();
    const auto node = makeNode();
    const Element leaf = makeLeaf();
    const Element below = makeLeaf();
    node->addElement("b", below);
    root->addElement("node", node);
    root->addElement("leaf", leaf);
    ListElements elements;
    LogCapture log;

    root->collectElements(elements, true);

    QCOMPARE(elements.size(), 2);
    QVERIFY(elements.contains(leaf));
    QVERIFY(elements.contains(below));
    COMPARE_LOG(log);
}

void tst_TreeElementsCollecting::twoLeavesWithoutPositionWarn()
{
    const auto root = makeNode();
    const Element one = makeLeaf();
    const Element other = makeLeaf();
    root->addElement("a", one);
    root->addElement("b", other);
    ListElements elements;
    LogCapture log;

    root->collectElements(elements, true);

    QCOMPARE(elements.size(), 2);
    QVERIFY(elements.contains(one) && elements.contains(other));
    // How often the two are compared is the matter of the sort.
    const QList<LogLine> lines = log.take();
    QVERIFY(!lines.isEmpty());
    QCOMPARE(lines.count(noPosition), lines.size());
}

void tst_TreeElementsCollecting::oneChildIsNeverCompared()
{
    const auto root = makeNode();
    const Element leaf = makeLeaf();
    root->addElement("a", leaf);
    ListElements elements;
    LogCapture log;

    root->collectElements(elements, true);

    QCOMPARE(elements, ListElements{leaf});
    COMPARE_LOG(log);
}

void tst_TreeElementsCollecting::childrenThatSayTreeNodeAreEnteredByTheVirtualOperation()
{
    const auto child = QSharedPointer<CollectRecorder>::create();
    const auto root = makeNode();
    root->addElement("a", child);
    ListElements elements;
    QStringList urls;
    QString prefix = "root";

    root->collectElements(elements, true);
    root->collectElements(elements, false);
    root->collectUrlsOfElements(urls, prefix);

    QCOMPARE(child->m_sortedFlags, (QList<bool>{true, false}));
    QCOMPARE(elements, (ListElements{Element(), Element()}));
    QCOMPARE(urls, QStringList{"under root/a"});
}

void tst_TreeElementsCollecting::aLeafThatSaysTreeNodeIsNotCollected()
{
    const auto root = makeNode();
    root->addElement("a", Element(new Leaf({{"type", "treenode"}}, nullptr)));
    ListElements elements;
    QStringList urls;
    QString prefix;
    LogCapture log;

    root->collectElements(elements, false);
    root->collectUrlsOfElements(urls, prefix);

    QVERIFY(elements.isEmpty());
    QVERIFY(urls.isEmpty());
    COMPARE_LOG(log, noTreeNode, noTreeNode);
}

void tst_TreeElementsCollecting::aNodeThatSaysOtherwiseIsALeaf()
{
    const auto root = makeNode();
    const auto odd = QSharedPointer<TreeNode>::create(QJsonObject{{"type", "Treenode"}}, nullptr);
    odd->addElement("below", makeLeaf());
    root->addElement("odd", odd);
    ListElements elements;
    QStringList urls;
    QString prefix;
    LogCapture log;

    root->collectElements(elements, true);
    root->collectUrlsOfElements(urls, prefix);

    QCOMPARE(elements, ListElements{Element(odd)});
    QCOMPARE(urls, QStringList{"/odd"});
    COMPARE_LOG(log);
}

void tst_TreeElementsCollecting::nullChildrenAreLeftOutOfTheCollection_data()
{
    QTest::addColumn<bool>("sorted");
    QTest::addColumn<int>("leaves");
    QTest::addColumn<int>("nulls");

    for (const bool sorted : {false, true}) {
        const QByteArray suffix = sorted ? ", sorted" : "";
        QTest::newRow("one null alone" + suffix) << sorted << 0 << 1;
        QTest::newRow("one null among leaves" + suffix) << sorted << 3 << 1;
        QTest::newRow("only nulls" + suffix) << sorted << 0 << 40;
        QTest::newRow("many of both" + suffix) << sorted << 60 << 40;
    }
}

void tst_TreeElementsCollecting::nullChildrenAreLeftOutOfTheCollection()
{
    QFETCH(bool, sorted);
    QFETCH(int, leaves);
    QFETCH(int, nulls);
    const auto root = makeNode();
    ListElements inOrder;
    for (int i = 0; i < leaves; ++i) {
        inOrder.append(makeLeaf(i));
        root->addElement(QStringLiteral("leaf%1").arg(i), inOrder.last());
    }
    QList<LogLine> expectedLog;
    for (int i = 0; i < nulls; ++i) {
        root->addElement(QStringLiteral("null%1").arg(i), Element());
        expectedLog.append(noValue);
    }
    ListElements elements;
    LogCapture log;

    root->collectElements(elements, sorted);

    QCOMPARE(log.take(), expectedLog);
    QCOMPARE(elements.size(), leaves);
    for (int i = 0; i < leaves; ++i) {
        QVERIFY(sorted ? elements.at(i) == inOrder.at(i) : elements.contains(inOrder.at(i)));
    }
}

void tst_TreeElementsCollecting::incompletePositionsDoNotLoseElements()
{
    // Elements without a position equal all others, so that the positions are no complete order.
    QRandomGenerator random(20);
    LogCapture log;
    for (int round = 0; round < 100; ++round) {
        const auto root = makeNode();
        const int count = static_cast<int>(random.bounded(2, 120));
        QSet<Base *> expected;
        for (int i = 0; i < count; ++i) {
            const bool hasPosition = random.bounded(4) != 0;
            const Element child = hasPosition ? makeLeaf(random.bounded(-50, 50)) : makeLeaf();
            expected.insert(child.data());
            root->addElement(QString::number(i), child);
        }
        ListElements elements;

        root->collectElements(elements, true);

        QSet<Base *> found;
        for (const Element &element : std::as_const(elements)) {
            found.insert(element.data());
        }
        QCOMPARE(elements.size(), count);
        QCOMPARE(found, expected);
    }
    const QList<LogLine> lines = log.take();
    QVERIFY(!lines.isEmpty());
    QCOMPARE(lines.count(noPosition), lines.size());
}

QTEST_GUILESS_MAIN(tst_TreeElementsCollecting)

#include "tst_TreeElementsCollecting.moc"
