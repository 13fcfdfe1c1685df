#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/LogCapture.h"

#include <QJsonArray>
#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Leaf = ConfigurationDataValue;
using Element = Base::BaseClassSharedPointer;
using ListElements = Base::ListElements;

namespace {

/// A leaf of an application, which notes what is asked of it.
class RecordingLeaf : public Leaf
{
public:
    RecordingLeaf(const QJsonObject &json, QStringList &questions)
        : Leaf(json, nullptr)
        , m_questions(questions)
    {
    }

    QVariant getProperty(const QString &key) const override
    {
        m_questions.append("get " + key);
        return Leaf::getProperty(key);
    }

    bool hasProperty(const QString &key) const override
    {
        m_questions.append("has " + key);
        return Leaf::hasProperty(key);
    }

private:
    QStringList &m_questions;
};

/// Collects sorted as plainly as it can be put: with compareElements() and nothing else.
void collectLiterally(const Element &node, ListElements &elements)
{
    using Definitions = ConfigurationAndProcessDataDefinitions;
    const Base::ChildMap &childs = node->getChildMap();
    if (childs.isEmpty()) {
        qWarning() << "Node has no childs!";
        return;
    }
    QStringList keys = childs.keys();
    std::sort(keys.begin(), keys.end());
    ListElements children;
    for (const QString &key : std::as_const(keys)) {
        children.append(childs.value(key));
    }
    const auto firstMissing = std::partition(children.begin(), children.end(),
                                             [](const Element &child) { return !child.isNull(); });
    std::sort(children.begin(), firstMissing, compareElements);
    for (const Element &child : std::as_const(children)) {
        if (child.isNull()) {
            qWarning() << "Key has no value!";
        } else if (child->getProperty(Definitions::getKeyDataPropertyType()).toString()
                   == Definitions::getKeyDataTypeTreeNode()) {
            collectLiterally(child, elements);
        } else {
            elements.append(child);
        }
    }
}

class Generator
{
public:
    explicit Generator(quint32 seed) : m_random(seed) { }

    /// @p isStrange lets elements of an application in.
    QSharedPointer<TreeNode> node(int depth, bool isStrange, QStringList &questions)
    {
        QJsonObject json = properties("treenode");
        const auto node = QSharedPointer<TreeNode>::create(json, nullptr);
        const bool havePlacesOfTheirOwn = below(2) == 0;
        // Beside each other, or far apart.
        const int numbers = below(2) == 0 ? 60 : 1000;
        for (int i = below(depth > 1 ? 20 : 60); i > 0; --i) {
            const int number = below(numbers);
            const Element element = child(depth, isStrange, questions);
            if (havePlacesOfTheirOwn) {
                // Not in the order of the keys, and now and then one without, or one twice.
                moveTo(element, below(100) == 0 ? QVariant(below(1000)) : QVariant(500 - number));
            }
            if (!havePlacesOfTheirOwn || !element.isNull() || below(20) == 0) {
                node->addElement(QString::number(number), element);
            }
        }
        return node;
    }

private:
    void moveTo(const Element &element, const QVariant &position)
    {
        if (element.isNull()) {
            return;
        }
        element->removeProperties({"displayPosition"});
        if (below(200) != 0) {
            element->addProperty("displayPosition", position);
        }
    }

    int below(int bound) { return m_random.bounded(bound); }

    QJsonObject properties(const QString &type)
    {
        // Not only numbers, and only now and then none.
        static const QJsonArray odd{"7", "x", QJsonValue(), true, 2.5, QJsonArray{1}};
        QJsonObject json{{"type", type}};
        if (below(12) == 0) {
            json.insert("displayPosition", odd.at(below(odd.size())));
        } else if (below(12) != 0) {
            json.insert("displayPosition", below(30) - 10);
        }
        return json;
    }

    Element child(int depth, bool isStrange, QStringList &questions)
    {
        if (isStrange && below(30) == 0) {
            return Element(new RecordingLeaf(properties("int32"), questions));
        }
        switch (below(12)) {
        case 0: return depth > 0 ? Element(node(depth - 1, isStrange, questions)) : Element();
        case 1: return Element(new ProcessDataValue(properties("int32"), nullptr));
        case 2: return Element();
        default: return Element(new Leaf(properties("int32"), nullptr));
        }
    }

    QRandomGenerator m_random;
};

} // namespace

/// Sorting by positions that are read once against sorting with compareElements(). Set
/// TESSEL_TEST_SEED to the number of a failed run to have the same cases again.
class tst_TreeElementsCollectingAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void orderMessagesAndQuestionsAgree_data();
    void orderMessagesAndQuestionsAgree();

private:
    quint32 m_seed = 0;
};

void tst_TreeElementsCollectingAgreement::initTestCase()
{
    bool isGiven = false;
    m_seed = qEnvironmentVariable("TESSEL_TEST_SEED").toUInt(&isGiven);
    if (!isGiven) {
        m_seed = QRandomGenerator::global()->generate();
    }
    qInfo() << "TESSEL_TEST_SEED" << m_seed;
}

void tst_TreeElementsCollectingAgreement::orderMessagesAndQuestionsAgree_data()
{
    QTest::addColumn<bool>("isStrange");
    QTest::newRow("elements of the library") << false;
    QTest::newRow("some of an application among them") << true;
}

void tst_TreeElementsCollectingAgreement::orderMessagesAndQuestionsAgree()
{
    QFETCH(bool, isStrange);
    Generator generator(m_seed);
    LogCapture log;
    int lines = 0;
    for (int i = 0; i < 300; ++i) {
        QStringList questions;
        const auto root = generator.node(2, isStrange, questions);
        ListElements expected;
        collectLiterally(root, expected);
        const QString expectedLog = toText(log.take());
        const QStringList expectedQuestions = questions;
        questions.clear();
        ListElements elements;

        root->collectElements(elements, true);

        QCOMPARE(elements, expected);
        QCOMPARE(toText(log.take()), expectedLog);
        QCOMPARE(questions, expectedQuestions);
        lines += expectedLog.isEmpty() ? 0 : 1;
    }
    QVERIFY(lines > 100);
}

QTEST_GUILESS_MAIN(tst_TreeElementsCollectingAgreement)

#include "tst_TreeElementsCollectingAgreement.moc"
