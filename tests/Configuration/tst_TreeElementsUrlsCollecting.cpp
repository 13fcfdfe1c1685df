#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Leaf = ConfigurationDataValue;
using Element = Base::BaseClassSharedPointer;
using ListElements = Base::ListElements;

namespace {

const LogLine noChilds = warning("Node has no childs!");
const LogLine noValue = warning("Key has no value!");

Element makeLeaf()
{
    return Element(new Leaf({{"type", "int32"}}, nullptr));
}

QSharedPointer<TreeNode> makeNode()
{
    return QSharedPointer<TreeNode>::create(QJsonObject{{"type", "treenode"}}, nullptr);
}

} // namespace

class tst_TreeElementsUrlsCollecting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void urlsOfAllLeavesAreCollected();
    void urlsBeginWithThePrefix();
    void anEmptyKeyHasNoUrl();
    void aNullChildHasNoUrl();
    void urlsOfANodeThatIsEmptyBelow();
};

void tst_TreeElementsUrlsCollecting::urlsOfAllLeavesAreCollected()
{
    const auto root = makeNode();
    const auto node = makeNode();
    const auto inner = makeNode();
    root->addElement("a", node);
    root->addElement("top", makeLeaf());
    node->addElement("b", makeLeaf());
    node->addElement("inner", inner);
    inner->addElement("x[1]", makeLeaf());
    QStringList urls;
    QString prefix;
    LogCapture log;

    root->collectUrlsOfElements(urls, prefix);

    urls.sort();
    QCOMPARE(urls, (QStringList{"/a/b", "/a/inner/x[1]", "/top"}));
    QVERIFY(prefix.isEmpty());
    COMPARE_LOG(log);
}

void tst_TreeElementsUrlsCollecting::urlsBeginWithThePrefix()
{
    const auto root = makeNode();
    const auto node = makeNode();
    root->addElement("a", node);
    node->addElement("b", makeLeaf());
    QStringList urls;
    QString prefix = "/device/";

    root->collectUrlsOfElements(urls, prefix);

    QCOMPARE(urls, QStringList{"/device//a/b"});
    QCOMPARE(prefix, QString("/device/"));
}

void tst_TreeElementsUrlsCollecting::anEmptyKeyHasNoUrl()
{
    const auto root = makeNode();
    const Element nameless = makeLeaf();
    root->addElement(QString(), nameless);
    root->addElement("a", makeLeaf());
    QStringList urls;
    QString prefix;
    ListElements elements;
    LogCapture log;

    root->collectUrlsOfElements(urls, prefix);

    QCOMPARE(urls, QStringList{"/a"});
    COMPARE_LOG(log, noValue);

    root->collectElements(elements, false);

    QVERIFY(elements.contains(nameless));
    COMPARE_LOG(log);
}

void tst_TreeElementsUrlsCollecting::aNullChildHasNoUrl()
{
    const auto root = makeNode();
    root->addElement("broken", Element());
    root->addElement("a", makeLeaf());
    root->addElement("worse", Element());
    QStringList urls;
    QString prefix;
    LogCapture log;

    root->collectUrlsOfElements(urls, prefix);

    QCOMPARE(urls, QStringList{"/a"});
    COMPARE_LOG(log, noValue, noValue);
}

void tst_TreeElementsUrlsCollecting::urlsOfANodeThatIsEmptyBelow()
{
    const auto root = makeNode();
    root->addElement("empty", makeNode());
    root->addElement("a", makeLeaf());
    QStringList urls;
    QString prefix;
    ListElements elements;
    LogCapture log;

    root->collectUrlsOfElements(urls, prefix);

    QCOMPARE(urls, QStringList{"/a"});
    COMPARE_LOG(log, noChilds);

    root->collectElements(elements, true);

    QCOMPARE(elements.size(), 1);
    COMPARE_LOG(log, noChilds);
}

QTEST_GUILESS_MAIN(tst_TreeElementsUrlsCollecting)

#include "tst_TreeElementsUrlsCollecting.moc"
