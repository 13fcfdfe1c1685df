#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QRandomGenerator>
#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Leaf = ConfigurationDataValue;
using Element = Base::BaseClassSharedPointer;

namespace {

constexpr int cases = 4000;

using Calls = QList<QPair<const Base *, QStringList>>;

/// A node of an application, which notes with which lists it is asked.
class RecordingNode : public TreeNode
{
public:
    explicit RecordingNode(Calls &calls) : TreeNode({{"type", "treenode"}}, nullptr), m_calls(calls)
    {
    }

    using TreeNode::getLeaf;
    const BaseClassSharedPointer getLeaf(const QStringList &pieces) override
    {
        m_calls.append({this, pieces});
        return TreeNode::getLeaf(pieces);
    }

    using TreeNode::isUrlValid;
    bool isUrlValid(const QStringList &pieces) override
    {
        m_calls.append({this, pieces});
        return TreeNode::isUrlValid(pieces);
    }

private:
    Calls &m_calls;
};

/// A node of an application that overrides nothing.
class DerivedNode : public TreeNode
{
public:
    DerivedNode() : TreeNode({{"type", "treenode"}}, nullptr) { }
};

/// Where a URL leads, one element asking the next.
struct LiteralWalk
{
    Calls calls;

    Element getLeaf(const Element &element, const QStringList &pieces)
    {
        note(element, pieces);
        if (pieces.isEmpty()) {
            return {};
        }
        if (element.dynamicCast<TreeNode>().isNull()) {
            qWarning() << "Wrong URL:" << pieces.join('/');
            return {};
        }
        const Element child = element->getChildMap().value(pieces.first());
        const QStringList rest = pieces.mid(1);
        return child.isNull() || rest.isEmpty() ? child : getLeaf(child, rest);
    }

    bool isUrlValid(const Element &element, const QStringList &pieces)
    {
        note(element, pieces);
        if (pieces.isEmpty()) {
            return false;
        }
        if (element.dynamicCast<TreeNode>().isNull()) {
            qWarning() << "Wrong URL:" << pieces.join('/');
            return false;
        }
        if (!element->getChildMap().contains(pieces.first())) {
            return false;
        }
        const Element child = element->getChildMap().value(pieces.first());
        const QStringList rest = pieces.mid(1);
        return rest.isEmpty() || (!child.isNull() && isUrlValid(child, rest));
    }

private:
    void note(const Element &element, const QStringList &pieces)
    {
        if (!element.dynamicCast<RecordingNode>().isNull()) {
            calls.append({element.data(), pieces});
        }
    }
};

class Generator
{
public:
    explicit Generator(quint32 seed) : m_random(seed) { }

    Element element(int depth, Calls &calls)
    {
        QSharedPointer<TreeNode> node;
        switch (depth > 0 ? below(8) : 7) {
        case 0: node.reset(new RecordingNode(calls)); break;
        case 1: node.reset(new DerivedNode); break;
        case 6: return {};
        case 7: return Element(new Leaf({{"type", "int32"}}, nullptr));
        default: node.reset(new TreeNode({{"type", "treenode"}}, nullptr));
        }
        for (int i = below(5); i >= 0; --i) {
            node->addElement(key(), element(depth - 1, calls));
        }
        return node;
    }

    QStringList pieces()
    {
        QStringList list;
        for (int i = below(7); i > 0; --i) {
            list.append(key());
        }
        return list;
    }

    QString separated(const QStringList &pieces)
    {
        static const QStringList separators{"/", "/", "/", "//"};
        QString url = below(3) == 0 ? "/" : "";
        for (const QString &piece : pieces) {
            url += (url.isEmpty() ? QString() : separators.at(below(4))) + piece;
        }
        return url + (below(4) == 0 ? "/" : "");
    }

private:
    int below(int bound) { return m_random.bounded(bound); }

    QString key()
    {
        static const QStringList keys{"a", "a", "b", "c", "\u00fc", "x[1]", ""};
        return keys.at(below(keys.size()));
    }

    QRandomGenerator m_random;
};

} // namespace

/// The walk of the library against one element asking the next, in trees where elements of an
/// application stand among its own. Set TESSEL_TEST_SEED to the number of a failed run to have the
/// same cases again.
class tst_TreeElementsUrlsAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void theListFormsAgree();
    void theTextFormsAgree();

private:
    template <class Ask>
    void compareWalks(const Ask &ask);

    quint32 m_seed = 0;
};

void tst_TreeElementsUrlsAgreement::initTestCase()
{
    bool isGiven = false;
    m_seed = qEnvironmentVariable("TESSEL_TEST_SEED").toUInt(&isGiven);
    if (!isGiven) {
        m_seed = QRandomGenerator::global()->generate();
    }
    qInfo() << "TESSEL_TEST_SEED" << m_seed;
}

/// @p ask is called with an element, the generator and pieces. It asks the library, and gives back
/// the pieces that the library had to see.
template <class Ask>
void tst_TreeElementsUrlsAgreement::compareWalks(const Ask &ask)
{
    Generator generator(m_seed);
    LogCapture log;
    int found = 0;
    int asked = 0;
    for (int i = 0; i < cases; ++i) {
        Calls calls;
        const Element root = generator.element(4, calls);
        if (root.isNull()) {
            continue;
        }
        QStringList pieces = generator.pieces();
        Element leaf;
        bool isValid = false;

        ask(*root, generator, pieces, leaf, isValid);

        const QString actualLog = toText(log.take());
        LiteralWalk walk;
        QCOMPARE(leaf, walk.getLeaf(root, pieces));
        QCOMPARE(isValid, walk.isUrlValid(root, pieces));
        QCOMPARE(actualLog, toText(log.take()));
        QCOMPARE(calls, walk.calls);
        found += leaf.isNull() ? 0 : 1;
        asked += calls.isEmpty() ? 0 : 1;
    }
    QVERIFY(found > cases / 100);
    QVERIFY(asked > cases / 100);
}

void tst_TreeElementsUrlsAgreement::theListFormsAgree()
{
    compareWalks([](Base &root, Generator & /*generator*/, const QStringList &pieces, Element &leaf,
                    bool &isValid) {
        leaf = root.getLeaf(pieces);
        isValid = root.isUrlValid(pieces);
    });
}

void tst_TreeElementsUrlsAgreement::theTextFormsAgree()
{
    compareWalks(
        [](Base &root, Generator &generator, QStringList &pieces, Element &leaf, bool &isValid) {
            const QString url = generator.separated(pieces);
            pieces = url.split('/', Qt::SkipEmptyParts);
            leaf = root.getLeaf(url);
            isValid = root.isUrlValid(url);
        });
}

QTEST_GUILESS_MAIN(tst_TreeElementsUrlsAgreement)

#include "tst_TreeElementsUrlsAgreement.moc"
