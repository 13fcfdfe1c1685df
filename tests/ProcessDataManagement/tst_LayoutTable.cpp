#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/LayoutTable_p.h"
#include "ProcessDataManagement/LayoutTrees.h"
#include "support/HeapWatch.h"

#include <QHash>
#include <QtTest>

// The leaves of a layout in little room: the same ones, in the same order, each found by its URL.

using namespace LayoutTrees;

namespace {

bool isSame(const LayoutLeaf &left, const LayoutLeaf &right)
{
    return left.url == right.url && left.type == right.type && left.offset == right.offset
           && left.sizeValue == right.sizeValue
           && left.relativeOffsetMetadata == right.relativeOffsetMetadata
           && left.sizeMetadata == right.sizeMetadata && left.bitmask == right.bitmask;
}

std::vector<LayoutLeaf> leavesIn(const LayoutTable &table)
{
    std::vector<LayoutLeaf> leaves;
    table.giveAll([&leaves](const LayoutLeaf &leaf) {
        leaves.push_back(leaf);
        leaves.back().url = QByteArray(leaf.url.constData(), leaf.url.size());
    });
    return leaves;
}

/// So many nodes with the same leaves in each.
QJsonObject nodesOf(int count, int leavesInEach)
{
    QJsonObject children;
    for (int i = 0; i < leavesInEach; ++i) {
        children.insert(QStringLiteral("leaf%1").arg(i), leafAt(4 * i));
    }
    QJsonObject nodes;
    for (int i = 0; i < count; ++i) {
        nodes.insert(QStringLiteral("channel%1").arg(i), nodeOf(children));
    }
    return nodes;
}

/// Answers in its own way, whatever its description says.
class OwnLeaf : public ProcessDataValue
{
public:
    using ProcessDataValue::ProcessDataValue;

    QVariant getProperty(const QString &key) const override
    {
        static const QHash<QString, QVariant> answers{
            {QStringLiteral("type"), QStringLiteral("own")},
            {QStringLiteral("offsetSharedMemory"), 41},
            {QStringLiteral("sizeValue"), 42},
            {QStringLiteral("relativeOffsetMetadata"), 43},
            {QStringLiteral("sizeMetadata"), 44},
            {QStringLiteral("bitmask"), 45}};
        return answers.value(key);
    }
};

/// A child of this name cannot be parsed.
class NodeWithGap : public ConfigurationAndProcessDataTreeNode
{
public:
    explicit NodeWithGap(const QString &name)
        : ConfigurationAndProcessDataTreeNode(nodeOf({}), nullptr)
    {
        m_childs.insert(name, {});
    }
};

QSharedPointer<ConfigurationAndProcessDataTreeNode> asNode(const Root &root)
{
    return root.dynamicCast<ConfigurationAndProcessDataTreeNode>();
}

/// With a leaf whose name upsets the order of the walk, or without.
Root rootWith(bool hasSlashes)
{
    return parse({{hasSlashes ? QStringLiteral("z/z") : QStringLiteral("z"), leafAt(8)}});
}

} // namespace

class tst_LayoutTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingIsBelowANullRoot();
    void allLeavesAreGivenInOrder_data();
    void allLeavesAreGivenInOrder();
    void eachLeafIsFoundByItsUrl_data() { allLeavesAreGivenInOrder_data(); }
    void eachLeafIsFoundByItsUrl();
    void whatIsNoLeafIsNotFound_data();
    void whatIsNoLeafIsNotFound();
    void leafOfAnotherClassIsAskedItself_data() { allLeavesAreGivenInOrder_data(); }
    void leafOfAnotherClassIsAskedItself();
    void leafWithoutATypeHasAnEmptyOne();
    void missingChildIsPassedOver_data() { allLeavesAreGivenInOrder_data(); }
    void missingChildIsPassedOver();
    void nothingOfTheTreeIsKept();
    void aLeafTakesLittleRoom();
};

void tst_LayoutTable::nothingIsBelowANullRoot()
{
    const LayoutTable table({});

    QVERIFY(leavesIn(table).empty());
    QVERIFY(!table.find("a"));
}

void tst_LayoutTable::allLeavesAreGivenInOrder_data()
{
    QTest::addColumn<bool>("hasSlashes");

    QTest::newRow("plain names") << false;
    QTest::newRow("names with slashes") << true;
}

void tst_LayoutTable::allLeavesAreGivenInOrder()
{
    QFETCH(bool, hasSlashes);
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    for (quint32 i = 0; i < 300; ++i) {
        const Root root = parse(RandomTree(seed + i, hasSlashes).children(3, {}));
        const std::vector<LayoutLeaf> expected = layoutLeavesOf(root);
        const std::vector<LayoutLeaf> leaves = leavesIn(LayoutTable(root));

        QCOMPARE(leaves.size(), expected.size());
        for (std::size_t at = 0; at < leaves.size(); ++at) {
            QVERIFY2(isSame(leaves[at], expected[at]), expected[at].url.constData());
        }
    }
}

void tst_LayoutTable::eachLeafIsFoundByItsUrl()
{
    QFETCH(bool, hasSlashes);
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    for (quint32 i = 0; i < 300; ++i) {
        const LayoutTable table(parse(RandomTree(seed + i, hasSlashes).children(3, {})));
        QByteArray former;
        for (const LayoutLeaf &leaf : leavesIn(table)) {
            // Of several with one URL it is the first.
            if (leaf.url != former) {
                const auto found = table.find(leaf.url);
                QVERIFY2(found && isSame(*found, leaf), leaf.url.constData());
            }
            former = leaf.url;
        }
    }
}

void tst_LayoutTable::whatIsNoLeafIsNotFound_data()
{
    QTest::addColumn<QByteArray>("url");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("before the first") << QByteArray("a");
    QTest::newRow("behind the last") << QByteArray("z");
    QTest::newRow("a node") << QByteArray("n");
    QTest::newRow("a node with its slash") << QByteArray("n/");
    QTest::newRow("a name of another node") << QByteArray("b/d");
    QTest::newRow("the begin of a name") << QByteArray("n/d");
    QTest::newRow("a name that goes on") << QByteArray("n/ddd");
    QTest::newRow("another character for the slash") << QByteArray("n0dd");
    QTest::newRow("below a leaf") << QByteArray("n/dd/dd");
    QTest::newRow("behind the last of a node") << QByteArray("n/f");
}

void tst_LayoutTable::whatIsNoLeafIsNotFound()
{
    QFETCH(QByteArray, url);
    const LayoutTable table(
        parse({{QStringLiteral("b"), leafAt(0)},
               {QStringLiteral("n"),
                nodeOf({{QStringLiteral("dd"), leafAt(4)}, {QStringLiteral("e"), leafAt(8)}})},
               {QStringLiteral("o"), leafAt(12)}}));

    QVERIFY(!table.find(url));
}

void tst_LayoutTable::leafOfAnotherClassIsAskedItself()
{
    QFETCH(bool, hasSlashes);
    const Root root = rootWith(hasSlashes);
    asNode(root)->addElement(QStringLiteral("a"),
                             QSharedPointer<OwnLeaf>::create(leafAt(4), nullptr));

    const std::vector<LayoutLeaf> leaves = leavesIn(LayoutTable(root));

    QCOMPARE(leaves.size(), std::size_t{2});
    QVERIFY(isSame(leaves[0], {"a", "own", 41, 42, 43, 44, 45}));
    QVERIFY(isSame(leaves[1], {hasSlashes ? "z/z" : "z", "int32", 8, 4, 0, 0, 0}));
}

void tst_LayoutTable::leafWithoutATypeHasAnEmptyOne()
{
    const Root root = rootWith(false);
    QJsonObject leaf = leafAt(4);
    leaf.remove(QStringLiteral("type"));
    asNode(root)->addElement(QStringLiteral("a"),
                             QSharedPointer<ProcessDataValue>::create(leaf, nullptr));

    const std::vector<LayoutLeaf> leaves = leavesIn(LayoutTable(root));

    QCOMPARE(leaves.size(), std::size_t{2});
    QVERIFY(isSame(leaves[0], {"a", "", 4, 4, 0, 0, 0}));
}

void tst_LayoutTable::missingChildIsPassedOver()
{
    QFETCH(bool, hasSlashes);
    const Root root = rootWith(hasSlashes);
    const auto node = QSharedPointer<NodeWithGap>::create(QStringLiteral("gap"));
    node->addElement(QStringLiteral("h"),
                     QSharedPointer<ProcessDataValue>::create(leafAt(4), nullptr));
    asNode(root)->addElement(QStringLiteral("node"), node);

    const std::vector<LayoutLeaf> leaves = leavesIn(LayoutTable(root));

    QCOMPARE(leaves.size(), std::size_t{2});
    QVERIFY(isSame(leaves[0], {"node/h", "int32", 4, 4, 0, 0, 0}));
    QVERIFY(isSame(leaves[1], {hasSlashes ? "z/z" : "z", "int32", 8, 4, 0, 0, 0}));
}

void tst_LayoutTable::nothingOfTheTreeIsKept()
{
    Root root = parse({{QStringLiteral("a"), leafAt(4)}});
    const QWeakPointer<ConfigurationAndProcessDataBase> watched = root;
    const LayoutTable table(root);
    root->getLeaf(QStringLiteral("a"))->setProperty(QStringLiteral("offsetSharedMemory"), 8);
    root.reset();

    QVERIFY(watched.isNull());
    QCOMPARE(table.find("a")->offset, 4U);
}

void tst_LayoutTable::aLeafTakesLittleRoom()
{
    if (!HeapWatch::canWatch()) {
        QSKIP("the sanitizer has a heap of its own");
    }
    constexpr int nodes = 200;
    constexpr int leavesInEach = 130;
    const Root root = parse(nodesOf(nodes, leavesInEach));

    const HeapWatch heap;
    const LayoutTable table(root);

    QVERIFY2(heap.peakBytes() < 16 * nodes * leavesInEach,
             qPrintable(QString::number(heap.peakBytes())));
}

QTEST_GUILESS_MAIN(tst_LayoutTable)

#include "tst_LayoutTable.moc"
