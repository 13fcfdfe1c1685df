#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/LogCapture.h"

#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Leaf = ConfigurationDataValue;
using Element = Base::BaseClassSharedPointer;

namespace {

Element makeLeaf()
{
    return Element(new Leaf({{"type", "int32"}, {"value", 1}}, nullptr));
}

QSharedPointer<TreeNode> makeNode()
{
    return QSharedPointer<TreeNode>::create(QJsonObject{{"type", "treenode"}}, nullptr);
}

/// Notes the lists with which the tree comes to the element.
class VisitRecorder : public Base
{
public:
    VisitRecorder() : Base(QJsonObject(), nullptr) { }

    using Base::getLeaf;
    const BaseClassSharedPointer getLeaf(const QStringList &pieces) override
    {
        m_getLeafCalls.append(pieces);
        return m_answer;
    }

    using Base::isUrlValid;
    bool isUrlValid(const QStringList &pieces) override
    {
        m_isUrlValidCalls.append(pieces);
        return true;
    }

    BaseClassSharedPointer m_answer;
    QList<QStringList> m_getLeafCalls;
    QList<QStringList> m_isUrlValidCalls;
};

/// Answers every URL with one element.
class Redirector : public Base
{
public:
    explicit Redirector(const BaseClassSharedPointer &answer)
        : Base(QJsonObject(), nullptr)
        , m_answer(answer)
    {
    }

    using Base::getLeaf;
    const BaseClassSharedPointer getLeaf(const QString & /*url*/) override { return m_answer; }

private:
    BaseClassSharedPointer m_answer;
};

} // namespace

/// The tree of every test: `a` with `b` and `x[1]` below it, `empty`, the leaf `top`, the process
/// leaf `measured` and the null child `broken`.
class tst_TreeElementsUrls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void emptyUrlAddressesNothing_data();
    void emptyUrlAddressesNothing();
    void spellingsOfOneUrlFindOneElement_data();
    void spellingsOfOneUrlFindOneElement();
    void aUrlMayEndAtATreeNode();
    void anUnknownPieceIsSilent_data();
    void anUnknownPieceIsSilent();
    void piecesAreNeverInterpreted();
    void aUrlPastALeafIsWrong_data();
    void aUrlPastALeafIsWrong();
    void aLeafHasNothingBelowIt();
    void theEmptyUrlOfALeafIsSilent();
    void theListFormTakesPiecesAsTheyAre();
    void theRestIsTheMatterOfTheChild();
    void aChildMayHaveAnEmptyKeyInTheListForm();
    void nothingIsBelowANullChild();
    void configurationLeafIsFoundByItsClass();
    void otherClassesAreNoConfigurationLeaf();
    void configurationLeafIsSoughtByTheVirtualOperation();
    void anAddedChildReplacesAndReleasesTheFormer();
    void aDeletedChildIsReleased();
    void deletingAMissingChildIsSilent();
    void releasingTheRootReleasesTheTree();

private:
    QSharedPointer<TreeNode> m_root;
    QSharedPointer<TreeNode> m_nodeA;
    Element m_leafB;
    Element m_leafTop;
};

void tst_TreeElementsUrls::init()
{
    m_root = makeNode();
    m_nodeA = makeNode();
    m_leafB = makeLeaf();
    m_leafTop = makeLeaf();
    m_nodeA->addElement("b", m_leafB);
    m_nodeA->addElement("x[1]", makeLeaf());
    m_root->addElement("a", m_nodeA);
    m_root->addElement("empty", makeNode());
    m_root->addElement("top", m_leafTop);
    m_root->addElement("measured", Element(new ProcessDataValue({{"type", "int32"}}, nullptr)));
    m_root->addElement("broken", Element());
}

void tst_TreeElementsUrls::cleanup()
{
    m_root.reset();
    m_nodeA.reset();
    m_leafB.reset();
    m_leafTop.reset();
}

void tst_TreeElementsUrls::emptyUrlAddressesNothing_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("null") << QString();
    QTest::newRow("empty") << QString("");
    QTest::newRow("one slash") << QString("/");
    QTest::newRow("slashes") << QString("////");
}

void tst_TreeElementsUrls::emptyUrlAddressesNothing()
{
    QFETCH(QString, url);
    LogCapture log;

    QVERIFY(m_root->getLeaf(url).isNull());
    QVERIFY(!m_root->isUrlValid(url));
    QVERIFY(m_root->getLeafConfigurationData(url).isNull());
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::spellingsOfOneUrlFindOneElement_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("plain") << "a/b";
    QTest::newRow("leading slash") << "/a/b";
    QTest::newRow("two leading slashes") << "//a/b";
    QTest::newRow("doubled inside and at the end") << "/a//b/";
    QTest::newRow("trailing slashes") << "a/b///";
}

void tst_TreeElementsUrls::spellingsOfOneUrlFindOneElement()
{
    QFETCH(QString, url);
    LogCapture log;

    QCOMPARE(m_root->getLeaf(url), m_leafB);
    QVERIFY(m_root->isUrlValid(url));
    QCOMPARE(m_root->getLeafConfigurationData(url), m_leafB);
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::aUrlMayEndAtATreeNode()
{
    LogCapture log;

    QCOMPARE(m_root->getLeaf(QStringLiteral("a")), Element(m_nodeA));
    QVERIFY(m_root->isUrlValid(QStringLiteral("a")));
    QVERIFY(m_root->isUrlValid(QStringLiteral("/empty/")));
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::anUnknownPieceIsSilent_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("first piece") << "z";
    QTest::newRow("first piece of several") << "z/b/c";
    QTest::newRow("below a node") << "a/z";
    QTest::newRow("below a node, going on") << "a/z/b";
    QTest::newRow("below an empty node") << "empty/b";
    QTest::newRow("other case") << "A/b";
    QTest::newRow("other case below") << "a/B";
    QTest::newRow("with blank") << "a /b";
}

void tst_TreeElementsUrls::anUnknownPieceIsSilent()
{
    QFETCH(QString, url);
    LogCapture log;

    QVERIFY(m_root->getLeaf(url).isNull());
    QVERIFY(!m_root->isUrlValid(url));
    QVERIFY(m_root->getLeafConfigurationData(url).isNull());
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::piecesAreNeverInterpreted()
{
    LogCapture log;

    QVERIFY(m_root->isUrlValid(QStringLiteral("a/x[1]")));
    QVERIFY(!m_root->isUrlValid(QStringLiteral("a/x")));
    QVERIFY(!m_root->isUrlValid(QStringLiteral("a/x[0]")));
    QVERIFY(!m_root->isUrlValid(QStringLiteral("a/b#0,0")));
    QVERIFY(!m_root->isUrlValid(QStringLiteral("a\\/b")));
    QVERIFY(!m_root->isUrlValid(QStringLiteral("a/../a/b")));
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::aUrlPastALeafIsWrong_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("rest");

    QTest::newRow("one piece") << "a/b/c"
                               << "c";
    QTest::newRow("several pieces") << "/a/b/c//d/"
                                    << "c/d";
    QTest::newRow("below a leaf of the root") << "top/x[1]"
                                              << "x[1]";
    QTest::newRow("below a process leaf") << "measured/c"
                                          << "c";
}

void tst_TreeElementsUrls::aUrlPastALeafIsWrong()
{
    QFETCH(QString, url);
    QFETCH(QString, rest);
    const LogLine expected = warning(QStringLiteral("Wrong URL: \"%1\"").arg(rest));
    LogCapture log;

    QVERIFY(m_root->getLeaf(url).isNull());
    COMPARE_LOG(log, expected);
    QVERIFY(!m_root->isUrlValid(url));
    COMPARE_LOG(log, expected);
    QVERIFY(m_root->getLeafConfigurationData(url).isNull());
    COMPARE_LOG(log, expected);
}

void tst_TreeElementsUrls::aLeafHasNothingBelowIt()
{
    LogCapture log;

    QVERIFY(m_leafB->getLeaf(QStringLiteral("/c/d")).isNull());
    COMPARE_LOG(log, warning("Wrong URL: \"c/d\""));
    QVERIFY(!m_leafB->isUrlValid(QStringLiteral("c")));
    COMPARE_LOG(log, warning("Wrong URL: \"c\""));
    QVERIFY(m_leafB->getLeaf(QStringList{"c", "", "d"}).isNull());
    COMPARE_LOG(log, warning("Wrong URL: \"c//d\""));
    QVERIFY(!m_leafB->isUrlValid(QStringList{"c"}));
    COMPARE_LOG(log, warning("Wrong URL: \"c\""));
}

void tst_TreeElementsUrls::theEmptyUrlOfALeafIsSilent()
{
    LogCapture log;

    QVERIFY(m_leafB->getLeaf(QString()).isNull());
    QVERIFY(m_leafB->getLeaf(QStringLiteral("//")).isNull());
    QVERIFY(m_leafB->getLeaf(QStringList()).isNull());
    QVERIFY(!m_leafB->isUrlValid(QString()));
    QVERIFY(!m_leafB->isUrlValid(QStringLiteral("/")));
    QVERIFY(!m_leafB->isUrlValid(QStringList()));
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::theListFormTakesPiecesAsTheyAre()
{
    LogCapture log;

    QCOMPARE(m_root->getLeaf(QStringList{"a", "b"}), m_leafB);
    QVERIFY(m_root->isUrlValid(QStringList{"a", "b"}));
    QVERIFY(m_root->getLeaf(QStringList{"a/b"}).isNull());
    QVERIFY(!m_root->isUrlValid(QStringList{"a/b"}));
    QVERIFY(m_root->getLeaf(QStringList{"", "a"}).isNull());
    QVERIFY(m_root->getLeaf(QStringList()).isNull());
    QVERIFY(!m_root->isUrlValid(QStringList()));
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::theRestIsTheMatterOfTheChild()
{
    const auto child = QSharedPointer<VisitRecorder>::create();
    child->m_answer = m_leafTop;
    m_nodeA->addElement("own", child);

    QCOMPARE(m_root->getLeaf(QStringLiteral("a/own")), Element(child));
    QVERIFY(m_root->isUrlValid(QStringLiteral("a/own")));
    QVERIFY(child->m_getLeafCalls.isEmpty());
    QVERIFY(child->m_isUrlValidCalls.isEmpty());

    QCOMPARE(m_root->getLeaf(QStringLiteral("a/own/c/d")), m_leafTop);
    QVERIFY(m_root->isUrlValid(QStringLiteral("a/own/e")));
    QCOMPARE(child->m_getLeafCalls, QList<QStringList>({{"c", "d"}}));
    QCOMPARE(child->m_isUrlValidCalls, QList<QStringList>({QStringList{"e"}}));

    // The text forms hand on to the list forms of the element itself.
    child->getLeaf(QStringLiteral("/f//g"));
    QVERIFY(child->isUrlValid(QStringLiteral("h/")));
    QCOMPARE(child->m_getLeafCalls.last(), (QStringList{"f", "g"}));
    QCOMPARE(child->m_isUrlValidCalls.last(), QStringList{"h"});
}

void tst_TreeElementsUrls::aChildMayHaveAnEmptyKeyInTheListForm()
{
    const Element child = makeLeaf();
    m_root->addElement(QString(), child);

    QCOMPARE(m_root->getLeaf(QStringList{""}), child);
    QVERIFY(m_root->getLeaf(QString()).isNull());
}

void tst_TreeElementsUrls::nothingIsBelowANullChild()
{
    LogCapture log;

    QVERIFY(m_root->getLeaf(QStringLiteral("broken")).isNull());
    QVERIFY(m_root->getLeaf(QStringLiteral("broken/b")).isNull());
    QVERIFY(!m_root->isUrlValid(QStringLiteral("broken/b")));
    QVERIFY(m_root->getLeafConfigurationData(QStringLiteral("broken")).isNull());
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::configurationLeafIsFoundByItsClass()
{
    const Element untyped(new Leaf({{"type", "treenode"}}, nullptr));
    m_root->addElement("odd", untyped);

    QCOMPARE(m_root->getLeafConfigurationData("top"), m_leafTop);
    QCOMPARE(m_root->getLeafConfigurationData("odd"), untyped);
}

void tst_TreeElementsUrls::otherClassesAreNoConfigurationLeaf()
{
    LogCapture log;

    QVERIFY(m_root->getLeafConfigurationData("a").isNull());
    QVERIFY(m_root->getLeafConfigurationData("measured").isNull());
    QVERIFY(!m_root->getLeaf(QStringLiteral("measured")).isNull());
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::configurationLeafIsSoughtByTheVirtualOperation()
{
    Redirector element(m_leafTop);

    QCOMPARE(element.getLeafConfigurationData("anything/at/all"), m_leafTop);
}

void tst_TreeElementsUrls::anAddedChildReplacesAndReleasesTheFormer()
{
    LogCapture log;
    const QWeakPointer<Base> former = m_root->getLeaf(QStringLiteral("empty"));
    const Element newcomer = makeLeaf();

    m_root->addElement("empty", newcomer);

    QVERIFY(former.isNull());
    QCOMPARE(m_root->getLeaf(QStringLiteral("empty")), newcomer);
    QCOMPARE(m_root->getNumberOfChilds(), 5);
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::aDeletedChildIsReleased()
{
    const QWeakPointer<Base> child = m_root->getLeaf(QStringLiteral("empty"));

    m_root->deleteElement("empty");

    QVERIFY(child.isNull());
    QVERIFY(!m_root->isUrlValid(QStringLiteral("empty")));
    QCOMPARE(m_root->getNumberOfChilds(), 4);
}

void tst_TreeElementsUrls::deletingAMissingChildIsSilent()
{
    LogCapture log;

    m_root->deleteElement("A");
    m_root->deleteElement("a/b");
    m_root->deleteElement(QString());

    QCOMPARE(m_root->getNumberOfChilds(), 5);
    QCOMPARE(m_nodeA->getNumberOfChilds(), 2);
    COMPARE_LOG(log);
}

void tst_TreeElementsUrls::releasingTheRootReleasesTheTree()
{
    const QWeakPointer<Base> node = m_nodeA;
    const QWeakPointer<Base> leaf = m_leafB;
    m_nodeA.reset();
    m_leafB.reset();
    QVERIFY(!node.isNull() && !leaf.isNull());

    m_root.reset();

    QVERIFY(node.isNull());
    QVERIFY(leaf.isNull());
}

QTEST_GUILESS_MAIN(tst_TreeElementsUrls)

#include "tst_TreeElementsUrls.moc"
