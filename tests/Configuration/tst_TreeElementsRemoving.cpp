#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"

#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Leaf = ConfigurationDataValue;
using Element = Base::BaseClassSharedPointer;

namespace {

Element newLeaf()
{
    return QSharedPointer<Leaf>::create(QJsonObject{{"type", "int32"}}, nullptr);
}

QSharedPointer<TreeNode> nodeOf(const QStringList &keys)
{
    const auto node = QSharedPointer<TreeNode>::create(QJsonObject{{"type", "treenode"}}, nullptr);
    for (const QString &key : keys) {
        node->addElement(key, newLeaf());
    }
    return node;
}

/// What a slot finds in @p node, all children alive.
QStringList keysIn(TreeNode &node)
{
    QStringList keys;
    for (auto child = node.getChildMap().cbegin(); child != node.getChildMap().cend(); ++child) {
        keys.append(child.key() + '=' + child.value()->getProperty("type").toString());
    }
    keys.sort();
    return keys;
}

/// Ends the test program instead of the stack where a slot is called by itself.
void expectFirstCall(int &calls)
{
    if (++calls > 10) {
        qFatal("the slot runs into itself");
    }
}

} // namespace

class tst_TreeElementsRemoving : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void deletedChildIsGoneBeforeItDies();
    void deletingAgainWhileAChildDiesFindsNothing();
    void deletingASiblingWhileAChildDiesTakesBothAway();
    void elementsComeInWhileAChildDies();
    void keyOfTheHashItselfCanBeDeleted();
    void replacedChildSeesItsSuccessor();
    void successorCanBeDeletedWhileTheReplacedChildDies();
    void childThatReplacesItselfLives();
    void nodeIsEmptyBeforeItsChildrenDie();
    void childrenCanBeDeletedWhileTheirNodeDies();
    void nodesBelowAreEmptyWhileTheirChildrenDie();
    void leafWithChildrenIsEmptyWhileTheyDie();
};

void tst_TreeElementsRemoving::deletedChildIsGoneBeforeItDies()
{
    const auto node = nodeOf({"a", "b"});
    QStringList seen;
    bool isFound = true;
    connect(node->getLeaf(QString("a")).data(), &QObject::destroyed, node.data(), [&] {
        seen = keysIn(*node);
        isFound = node->isUrlValid(QString("a")) || !node->getLeaf(QString("a")).isNull();
    });

    node->deleteElement("a");

    QCOMPARE(seen, QStringList{"b=int32"});
    QVERIFY(!isFound);
}

void tst_TreeElementsRemoving::deletingAgainWhileAChildDiesFindsNothing()
{
    const auto node = nodeOf({"a", "b"});
    int calls = 0;
    connect(node->getLeaf(QString("a")).data(), &QObject::destroyed, node.data(), [&] {
        expectFirstCall(calls);
        node->deleteElement("a");
    });

    node->deleteElement("a");

    QCOMPARE(calls, 1);
    QCOMPARE(keysIn(*node), QStringList{"b=int32"});
}

void tst_TreeElementsRemoving::deletingASiblingWhileAChildDiesTakesBothAway()
{
    const auto node = nodeOf({"a", "b", "c"});
    connect(node->getLeaf(QString("a")).data(), &QObject::destroyed, node.data(),
            [&] { node->deleteElement("b"); });

    node->deleteElement("a");

    QCOMPARE(keysIn(*node), QStringList{"c=int32"});
}

void tst_TreeElementsRemoving::elementsComeInWhileAChildDies()
{
    const auto node = nodeOf({"a"});
    connect(node->getLeaf(QString("a")).data(), &QObject::destroyed, node.data(), [&] {
        // More than the table has room for, so that it is made anew.
        for (int i = 0; i < 100; ++i) {
            node->addElement(QString::number(i), nodeOf({}));
        }
        node->addElement("a", nodeOf({}));
    });

    node->deleteElement("a");

    QCOMPARE(node->getNumberOfChilds(), 101);
    QCOMPARE(node->getLeaf(QString("a"))->getProperty("type"), QVariant("treenode"));
}

void tst_TreeElementsRemoving::keyOfTheHashItselfCanBeDeleted()
{
    const auto node = nodeOf({"a"});

    node->deleteElement(node->getChildMap().constBegin().key());

    QCOMPARE(node->getNumberOfChilds(), 0);
}

void tst_TreeElementsRemoving::replacedChildSeesItsSuccessor()
{
    const auto node = nodeOf({"a"});
    QStringList seen;
    connect(node->getLeaf(QString("a")).data(), &QObject::destroyed, node.data(),
            [&] { seen = keysIn(*node); });

    node->addElement("a", nodeOf({}));

    QCOMPARE(seen, QStringList{"a=treenode"});
}

void tst_TreeElementsRemoving::successorCanBeDeletedWhileTheReplacedChildDies()
{
    QStringList keys;
    for (int i = 0; i < 100; ++i) {
        keys.append(QString::number(i));
    }
    const auto node = nodeOf(keys);
    connect(node->getLeaf(QString("7")).data(), &QObject::destroyed, node.data(), [&] {
        for (const QString &key : qAsConst(keys)) {
            node->deleteElement(key);
        }
    });

    node->addElement("7", nodeOf({}));

    QCOMPARE(node->getNumberOfChilds(), 0);
}

void tst_TreeElementsRemoving::childThatReplacesItselfLives()
{
    const auto node = nodeOf({"a"});

    node->addElement("a", node->getChildMap().constBegin().value());

    QCOMPARE(keysIn(*node), QStringList{"a=int32"});
}

void tst_TreeElementsRemoving::nodeIsEmptyBeforeItsChildrenDie()
{
    auto node = nodeOf({"a", "b", "c"});
    TreeNode *const bare = node.data();
    int calls = 0;
    for (const Element &child : node->getChildMap()) {
        connect(child.data(), &QObject::destroyed, this, [&] {
            calls += bare->getNumberOfChilds() == 0 && bare->getChildMap().isEmpty() ? 1 : 100;
        });
    }

    node.clear();

    QCOMPARE(calls, 3);
}

void tst_TreeElementsRemoving::childrenCanBeDeletedWhileTheirNodeDies()
{
    auto node = nodeOf({"a", "b", "c"});
    TreeNode *const bare = node.data();
    int calls = 0;
    for (const Element &child : node->getChildMap()) {
        connect(child.data(), &QObject::destroyed, this, [&] {
            expectFirstCall(calls);
            for (const char *key : {"a", "b", "c"}) {
                calls += bare->isUrlValid(QString(key)) ? 100 : 0;
                bare->deleteElement(key);
            }
        });
    }

    node.clear();

    QCOMPARE(calls, 3);
}

void tst_TreeElementsRemoving::nodesBelowAreEmptyWhileTheirChildrenDie()
{
    const auto root = nodeOf({"other"});
    auto node = nodeOf({"a", "b"});
    TreeNode *const bare = node.data();
    root->addElement("node", node);
    QStringList seen;
    for (const Element &child : node->getChildMap()) {
        connect(child.data(), &QObject::destroyed, this,
                [&] { seen.append(keysIn(*root) + keysIn(*bare)); });
    }
    node.clear();

    root->deleteElement("node");

    QCOMPARE(seen, (QStringList{"other=int32", "other=int32"}));
}

void tst_TreeElementsRemoving::leafWithChildrenIsEmptyWhileTheyDie()
{
    class Holder : public Leaf
    {
    public:
        Holder() : Leaf(QJsonObject(), nullptr) { m_childs.insert("a", newLeaf()); }
    };
    auto holder = QSharedPointer<Holder>::create();
    const Base *const bare = holder.data();
    int found = -1;
    connect(holder->getChildMap().value("a").data(), &QObject::destroyed, this,
            [&] { found = bare->getNumberOfChilds(); });

    holder.clear();

    QCOMPARE(found, 0);
}

QTEST_GUILESS_MAIN(tst_TreeElementsRemoving)
#include "tst_TreeElementsRemoving.moc"
