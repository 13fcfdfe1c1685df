#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "RandomConfiguration.h"
#include "support/LogCapture.h"

#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using Element = Base::BaseClassSharedPointer;
using Parser = ConfigurationAndProcessDataParser;
using TreeNode = ConfigurationAndProcessDataTreeNode;

namespace {

/// Frames every element by itself and puts the objects together by hand.
QJsonObject frameLiterally(const Element &element)
{
    QJsonObject json;
    element->Base::getContentAsQJsonObject(json);
    const auto node = element.dynamicCast<TreeNode>();
    if (node.isNull()) {
        return json;
    }
    QJsonObject childs;
    if (node->getChildMap().isEmpty()) {
        qWarning() << "Node has no childs!" << node.data();
    }
    const Base::ChildMap &map = node->getChildMap();
    for (auto child = map.cbegin(); child != map.cend(); ++child) {
        childs.insert(child.key(), frameLiterally(child.value()));
    }
    json.insert("value", childs);
    return json;
}

/// Gives elements values and keys that no description brings.
void makeStrange(const Element &element, RandomConfiguration &random)
{
    static const QStringList keys{"type", "value", "minLimit", "added", "info", "z"};
    if (random.once(3)) {
        element->removeProperties({random.pick(keys)});
    }
    for (int i = random.once(3) ? random.below(3) : 0; i > 0; --i) {
        const QVariant undefined = QJsonValue(QJsonValue::Undefined);
        element->addProperty(random.pick(keys), random.once(5) ? undefined : random.value());
    }
    for (const Element &child : element->getChildMap()) {
        makeStrange(child, random);
    }
}

QJsonObject row(int number, const QString &unit)
{
    return {{"type", "int32"}, {"value", number}, {"unit", unit}, {"limits", QJsonArray{number}}};
}

} // namespace

/// Objects that start as a copy of the one before against objects that grow key by key.
class tst_FramingAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anyTreeIsFramedAsItsElementsAreAlone();
    void neighboursOfOneShapeKeepTheirOwnValues();
    void anObjectThatIsNotEmptyKeepsWhatItHolds();
};

void tst_FramingAgreement::anyTreeIsFramedAsItsElementsAreAlone()
{
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    RandomConfiguration random(seed);
    LogCapture log;
    for (int i = 0; i < 400; ++i) {
        const Element root = Parser().createNode(random.description(), "config.json");
        if (random.once(2)) {
            makeStrange(root, random);
        }
        log.take();
        const QJsonObject expected = frameLiterally(root);
        const QString expectedLog = toText(log.take());

        const QJsonObject json = Parser().createJsonObject(root);

        QCOMPARE(toText(log.take()), expectedLog);
        QCOMPARE(QJsonDocument(json).toJson(), QJsonDocument(expected).toJson());
    }
}

void tst_FramingAgreement::neighboursOfOneShapeKeepTheirOwnValues()
{
    QJsonObject childs;
    for (int i = 0; i < 20; ++i) {
        childs.insert(QString::number(i), row(i, i % 3 == 0 ? "mbar" : ""));
    }
    const QJsonObject description{{"type", "treenode"}, {"value", childs}};
    const Element root = Parser().createNode(description, "config.json");

    QCOMPARE(Parser().createJsonObject(root), description);

    // A text may become a number, and a value that JSON does not know leaves no member.
    root->getLeaf("7")->setProperty("unit", 5);
    root->getLeaf("9")->setProperty("unit", QJsonValue(QJsonValue::Undefined));
    QJsonObject changed = row(7, {});
    changed.insert("unit", 5);
    childs.insert("7", changed);
    changed = row(9, {});
    changed.remove("unit");
    childs.insert("9", changed);
    QCOMPARE(Parser().createJsonObject(root),
             (QJsonObject{{"type", "treenode"}, {"value", childs}}));
    QCOMPARE(Parser().createJsonObject(root->getLeaf("8")), row(8, ""));
}

void tst_FramingAgreement::anObjectThatIsNotEmptyKeepsWhatItHolds()
{
    const Element root = Parser().createNode(row(1, "mbar"), "config.json");
    QJsonObject json{{"unit", "other"}, {"kept", true}};
    QJsonObject expected = row(1, "mbar");
    expected.insert("kept", true);

    root->getContentAsQJsonObject(json);

    QCOMPARE(json, expected);
}

QTEST_GUILESS_MAIN(tst_FramingAgreement)

#include "tst_FramingAgreement.moc"
