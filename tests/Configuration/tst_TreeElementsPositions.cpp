#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <algorithm>
#include <limits>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Element = Base::BaseClassSharedPointer;
using ListElements = Base::ListElements;

namespace {

Element makeLeaf(int position)
{
    return Element(
        new ConfigurationDataValue({{"type", "int32"}, {"displayPosition", position}}, nullptr));
}

QSharedPointer<TreeNode> makeNode(int position)
{
    return QSharedPointer<TreeNode>::create(
        QJsonObject{{"type", "treenode"}, {"displayPosition", position}}, nullptr);
}

/// Says that it is a tree node and deletes a child of another one when it is asked.
class Deleter : public Base
{
public:
    Deleter(TreeNode &node, const QString &key)
        : Base(QJsonObject{{"type", "treenode"}}, nullptr)
        , m_node(node)
        , m_key(key)
    {
    }

    void collectElements(ListElements & /*elements*/, bool /*sorted*/) const override
    {
        m_node.deleteElement(m_key);
    }

private:
    TreeNode &m_node;
    const QString m_key;
};

} // namespace

/// Collecting sorted where every child has a position: which these may be, and what becomes of children
/// that leave their node meanwhile.
class tst_TreeElementsPositions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void childrenDeletedMeanwhileAreCollected();
    void sharedPositionsLoseNobody_data();
    void sharedPositionsLoseNobody();
    void farthestPositionsAreSorted();
};

void tst_TreeElementsPositions::childrenDeletedMeanwhileAreCollected()
{
    const auto root = makeNode(0);
    const auto node = makeNode(1);
    const Element first = makeLeaf(0);
    const QWeakPointer<Base> last = [&root] {
        const Element leaf = makeLeaf(2);
        root->addElement("last", leaf);
        return leaf.toWeakRef();
    }();
    root->addElement("first", first);
    root->addElement("node", node);
    node->addElement("deleter", QSharedPointer<Deleter>::create(*root, "last"));
    ListElements elements;
    LogCapture log;

    root->collectElements(elements, true);

    QCOMPARE(root->getNumberOfChilds(), 2);
    QVERIFY(!last.isNull());
    QCOMPARE(elements, (ListElements{first, last.toStrongRef()}));
    COMPARE_LOG(log);
}

void tst_TreeElementsPositions::sharedPositionsLoseNobody_data()
{
    QTest::addColumn<QList<int>>("positions");

    QTest::newRow("beside each other") << QList<int>{3, 1, 2, 1};
    QTest::newRow("far apart") << QList<int>{1000, -1000, 0, 1000};
    QTest::newRow("all") << QList<int>{5, 5, 5};
}

void tst_TreeElementsPositions::sharedPositionsLoseNobody()
{
    QFETCH(QList<int>, positions);
    const auto root = makeNode(0);
    QHash<Base *, int> left;
    for (const int position : std::as_const(positions)) {
        const Element leaf = makeLeaf(position);
        left.insert(leaf.data(), position);
        root->addElement(QString::number(left.size()), leaf);
    }
    std::sort(positions.begin(), positions.end());
    ListElements elements;
    LogCapture log;

    root->collectElements(elements, true);

    QList<int> found;
    for (const Element &element : std::as_const(elements)) {
        QVERIFY(left.contains(element.data()));
        found.append(left.take(element.data()));
    }
    QCOMPARE(found, positions);
    COMPARE_LOG(log);
}

void tst_TreeElementsPositions::farthestPositionsAreSorted()
{
    const auto root = makeNode(0);
    const Element last = makeLeaf(std::numeric_limits<int>::max());
    const Element first = makeLeaf(std::numeric_limits<int>::min());
    const Element middle = makeLeaf(-1);
    root->addElement("a", last);
    root->addElement("b", first);
    root->addElement("c", middle);
    ListElements elements;

    root->collectElements(elements, true);

    QCOMPARE(elements, (ListElements{first, middle, last}));
}

QTEST_GUILESS_MAIN(tst_TreeElementsPositions)

#include "tst_TreeElementsPositions.moc"
