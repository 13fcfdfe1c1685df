#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Leaf = ConfigurationDataValue;
using Element = Base::BaseClassSharedPointer;

namespace {

const LogLine noValue = warning("Key has no value!");
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

/// Has its position only by the virtual queries.
class Positioned : public Base
{
public:
    explicit Positioned(int position, bool answers = true)
        : Base(QJsonObject(), nullptr)
        , m_position(position)
        , m_answers(answers)
    {
    }

    bool hasProperty(const QString & /*key*/) const override { return m_answers; }
    QVariant getProperty(const QString &key) const override
    {
        return key == QLatin1String("displayPosition") ? QVariant(m_position) : QVariant();
    }

private:
    int m_position;
    bool m_answers;
};

} // namespace

class tst_TreeElementsComparing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void smallerPositionComesFirst_data();
    void smallerPositionComesFirst();
    void positionsAreAskedByTheVirtualQueries();
    void missingPositionsAreEqualToEverything();
    void anInvalidPositionIsNone();
    void nullElementsCompareEqual();
    void equalPositionsStandInTheSameOrderHoweverTheChildrenCame();
};

void tst_TreeElementsComparing::smallerPositionComesFirst_data()
{
    QTest::addColumn<QJsonValue>("left");
    QTest::addColumn<QJsonValue>("right");
    QTest::addColumn<bool>("expected");

    QTest::newRow("smaller") << QJsonValue(1) << QJsonValue(2) << true;
    QTest::newRow("greater") << QJsonValue(2) << QJsonValue(1) << false;
    QTest::newRow("equal") << QJsonValue(2) << QJsonValue(2) << false;
    QTest::newRow("negative") << QJsonValue(-1) << QJsonValue(0) << true;
    QTest::newRow("by number, not by text") << QJsonValue("9") << QJsonValue("10") << true;
    QTest::newRow("no number counts as zero") << QJsonValue("x") << QJsonValue(1) << true;
    QTest::newRow("no number is not below zero") << QJsonValue("x") << QJsonValue(0) << false;
}

void tst_TreeElementsComparing::smallerPositionComesFirst()
{
    QFETCH(QJsonValue, left);
    QFETCH(QJsonValue, right);
    const Element one = makeLeaf(left);
    const Element other = makeLeaf(right);
    LogCapture log;

    QTEST(compareElements(one, other), "expected");
    COMPARE_LOG(log);
}

void tst_TreeElementsComparing::positionsAreAskedByTheVirtualQueries()
{
    const Element one(new Positioned(1));
    const Element two(new Positioned(2));
    const Element silent(new Positioned(0, false));
    LogCapture log;

    QVERIFY(compareElements(one, two));
    QVERIFY(!compareElements(two, one));
    COMPARE_LOG(log);
    QVERIFY(!compareElements(silent, one));
    COMPARE_LOG(log, noPosition);
}

void tst_TreeElementsComparing::missingPositionsAreEqualToEverything()
{
    const Element with = makeLeaf(1);
    const Element without = makeLeaf();
    const Element node = makeNode();
    const Element placedNode = makeNode(5);
    LogCapture log;

    for (const auto &pair :
         {qMakePair(with, without), qMakePair(without, with), qMakePair(without, without)}) {
        QVERIFY(!compareElements(pair.first, pair.second));
        COMPARE_LOG(log, noPosition);
    }
    for (const auto &pair :
         {qMakePair(with, node), qMakePair(node, with), qMakePair(without, node),
          qMakePair(node, without), qMakePair(without, placedNode), qMakePair(node, node)}) {
        QVERIFY(!compareElements(pair.first, pair.second));
        COMPARE_LOG(log);
    }
    QVERIFY(compareElements(with, placedNode));
    COMPARE_LOG(log);
}

void tst_TreeElementsComparing::anInvalidPositionIsNone()
{
    const Element with = makeLeaf(1);
    const Element invalid = makeLeaf();
    invalid->addProperty("displayPosition", QVariant());
    LogCapture log;

    QVERIFY(!compareElements(invalid, with));
    COMPARE_LOG(log, noPosition);
}

void tst_TreeElementsComparing::nullElementsCompareEqual()
{
    const Element leaf = makeLeaf(1);
    LogCapture log;

    QVERIFY(!compareElements(Element(), leaf));
    COMPARE_LOG(log, noValue);
    QVERIFY(!compareElements(leaf, Element()));
    COMPARE_LOG(log, noValue);
    QVERIFY(!compareElements(Element(), Element()));
    COMPARE_LOG(log, noValue);
}

void tst_TreeElementsComparing::equalPositionsStandInTheSameOrderHoweverTheChildrenCame()
{
    // Many children, so that a sort that is not stable has occasion to show it.
    QStringList keys;
    QHash<QString, Element> leaves;
    for (int i = 0; i < 64; ++i) {
        keys.append(QStringLiteral("child%1").arg(i));
        leaves.insert(keys.last(), makeLeaf(QJsonValue(i % 3)));
    }
    Base::ListElements expected;
    for (int round = 0; round < 64; ++round) {
        const auto root = makeNode();
        for (const QString &key : qAsConst(keys)) {
            root->addElement(key, leaves.value(key));
        }
        Base::ListElements elements;

        root->collectElements(elements, true);

        if (round == 0) {
            expected = elements;
        }
        QCOMPARE(elements, expected);
        keys.append(keys.takeFirst());
    }
}

QTEST_GUILESS_MAIN(tst_TreeElementsComparing)

#include "tst_TreeElementsComparing.moc"
