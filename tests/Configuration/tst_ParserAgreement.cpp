#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Factories/Factory.h"
#include "support/JsonAnswers.h"
#include "support/LogCapture.h"
#include "support/ToolkitDocument.h"

#include <QJsonDocument>
#include <QRandomGenerator>
#include <QtTest>

// A description that is read from its text becomes the tree that its JSON object describes.

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Element = Base::BaseClassSharedPointer;
using Node = ConfigurationAndProcessDataTreeNode;
using Parser = ConfigurationAndProcessDataParser;
using VEXOFactories::LeafFactory;

namespace {

/// The tree of @p json, element by element from the JSON objects of a document.
Element plainTree(const QJsonObject &json, const QString &postfix);

bool addPlainChilds(Node &node, const QJsonObject &childs, const QString &postfix)
{
    // Not by their keys, as one with a byte order mark in front would not be found by it.
    for (auto member = childs.constBegin(); member != childs.constEnd(); ++member) {
        const QString key = member.key();
        if (!member.value().isObject()) {
            qWarning() << "non object child element in tree node found" << key;
            return false;
        }
        const Element child = plainTree(member.value().toObject(), postfix);
        if (child.isNull()) {
            qWarning() << "object is invalid" << key;
            return false;
        }
        node.addElement(key, child);
        QObject::connect(child.data(), qOverload<>(&Base::propertyChanged), &node,
                         qOverload<>(&Base::propertyChanged));
    }
    return true;
}

Element plainTree(const QJsonObject &json, const QString &postfix)
{
    if (!json.contains("type")) {
        qWarning() << "key 'type' not found in JSON object";
        return {};
    }
    if (json.value("type").toString() != "treenode") {
        const auto *creator = LeafFactory::instance().findCreator(postfix);
        if (creator == nullptr) {
            qWarning() << "wrong file postfix" << postfix;
            return {};
        }
        return Element(creator->create(json));
    }
    if (!json.contains("value")) {
        qWarning() << "childs information is invalid" << json.keys();
        return {};
    }
    const auto node = QSharedPointer<Node>::create(json, nullptr);
    return addPlainChilds(*node, json.value("value").toObject(), postfix) ? node : Element();
}

Element plainParse(const QByteArray &text, const QString &postfix)
{
    QJsonParseError error{};
    const QJsonDocument document = toolkitDocument(text, &error);
    if (document.isNull()) {
        qWarning() << "Parsing error: " << error.errorString();
        return {};
    }
    Parser().checkVersion(document.object());
    return plainTree(document.object(), postfix);
}

/// Writes descriptions as anybody might: keys in any order, twice, escaped, values of other types.
class RandomText
{
public:
    explicit RandomText(quint32 seed) : m_random(seed) { }

    QByteArray description()
    {
        const QByteArray text = once(8) ? leaf() : node(3);
        if (once(12)) {
            return text.left(below(text.size()));
        }
        return once(30) ? '[' + text + ']' : text;
    }

    QString postfix() { return once(20) ? "other.json" : once(2) ? "config.json" : "process.json"; }

private:
    int below(int bound) { return m_random.bounded(bound); }
    bool once(int inSoMany) { return below(inSoMany) == 0; }
    QByteArray pick(const QList<QByteArray> &list) { return list.at(below(list.size())); }

    QByteArray object(QList<QByteArray> members)
    {
        if (once(2)) {
            std::shuffle(members.begin(), members.end(), m_random);
        } else if (!once(3)) {
            std::sort(members.begin(), members.end());
        }
        return '{' + members.join(once(4) ? " ,\n" : ",") + '}';
    }

    QByteArray node(int depth)
    {
        QList<QByteArray> children;
        for (int i = below(7); i > 0; --i) {
            children += childKey() + (depth > 0 && once(3) ? node(depth - 1) : leaf());
        }
        if (once(200)) {
            children += "\"wrong\":" + value(1);
        }
        QList<QByteArray> members{R"("type":"treenode")"};
        if (!once(100)) {
            members += "\"value\":" + (once(40) ? value(1) : object(children));
        }
        if (once(3)) {
            members += R"("schemeVersion":)" + pick({"1", "1.0", "2", "1e0", "\"1\"", "3e10"});
        }
        addOthers(members);
        return object(members);
    }

    QByteArray childKey()
    {
        return pick({"\"leaf", "\"", "\"a b", "\"\xc3\xa4", "\"\\u00e4", "\"\xef\xbb\xbf"})
               + QByteArray::number(below(9)) + "\":";
    }

    QByteArray leaf()
    {
        if (m_usual.isEmpty() || once(6)) {
            m_usual = anyLeaf();
        }
        return once(2) ? m_usual : anyLeaf();
    }

    QByteArray anyLeaf()
    {
        QList<QByteArray> members;
        if (!once(200)) {
            members += "\"type\":" + type();
        }
        for (const QByteArray key : {"value", "minLimit", "maxLimit"}) {
            if (!once(4)) {
                members += '"' + key + "\":" + value(2);
            }
        }
        addOthers(members);
        return object(members);
    }

    QByteArray type()
    {
        return once(15) ? value(1)
                        : pick({"\"int32\"", "\"uint32\"", "\"double\"", "\"float\"", "\"bool\"",
                                "\"bit\"", "\"string\"", "\"int64\"", "\"uint16\"", "\"selector\"",
                                "\"array\"", "\"unknown\"", "\"uint64\"", "\"in\\u007432\""});
    }

    void addOthers(QList<QByteArray> &members)
    {
        static const QList<QByteArray> keys{"unit",
                                            "labelTextId",
                                            "viewStart",
                                            "sizeValue",
                                            "offsetSharedMemory",
                                            "bitmask",
                                            "readOnly",
                                            "displayPosition",
                                            "sizeMetadata",
                                            "\xc3\xa4",
                                            "\\u0061",
                                            "a",
                                            "",
                                            "z\\n",
                                            "value",
                                            "\xef\xbb\xbf"
                                            "unit"};
        for (int i = once(30) ? 30 : below(9); i > 0; --i) {
            members += '"' + pick(keys.mid(0, once(6) ? keys.size() : 9)) + "\":" + value(2);
        }
    }

    QByteArray value(int depth)
    {
        if (depth > 0 && once(8)) {
            return '[' + value(depth - 1) + (once(2) ? QByteArray() : ',' + value(depth - 1)) + ']';
        }
        if (depth > 0 && once(8)) {
            return "{\"b\":" + value(depth - 1) + ",\"a\":" + value(depth - 1) + '}';
        }
        return pick({"0",
                     "1",
                     "-1",
                     "5.0",
                     "2.5",
                     "1e300",
                     "-0",
                     "2147483648",
                     "4294967296",
                     "9007199254740993",
                     "18446744073709551615",
                     "true",
                     "false",
                     "null",
                     "null",
                     "\"\"",
                     "\"bar\"",
                     "\"12\"",
                     "\"1.5\"",
                     "\"true\"",
                     "\"\xc3\xa4\"",
                     "\"\\u0041\\u0000\"",
                     "\"\xef\xbb\xbf\"",
                     "\"leaf.7\""});
    }

    QRandomGenerator m_random;
    QByteArray m_usual;
};

void compareProperties(Base &element, Base &expected)
{
    const Base::PropertyMap properties = element.getProperties();
    const Base::PropertyMap others = expected.getProperties();
    // Also their order, in which messages come.
    QCOMPARE(properties.keys(), others.keys());
    for (auto property = others.cbegin(); property != others.cend(); ++property) {
        const QVariant value = properties.value(property.key());
        QVERIFY2(JsonAnswers::isSame(value, property.value()), qPrintable(property.key()));
        QCOMPARE(value.isNull(), property.value().isNull());
        QCOMPARE(element.getProperty(property.key()), expected.getProperty(property.key()));
    }
}

void compareTrees(const Element &tree, const Element &expected)
{
    QCOMPARE(tree.isNull(), expected.isNull());
    if (tree.isNull()) {
        return;
    }
    QCOMPARE(tree->metaObject(), expected->metaObject());
    compareProperties(*tree, *expected);
    QCOMPARE(tree->getChildMap().keys(), expected->getChildMap().keys());
    for (const QString &key : tree->getChildMap().keys()) {
        compareTrees(tree->getChildMap().value(key), expected->getChildMap().value(key));
        if (QTest::currentTestFailed()) {
            return;
        }
    }
}

} // namespace

class tst_ParserAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { qSetGlobalQHashSeed(-1); }

    void aTextBecomesTheTreeOfItsObject_data();
    void aTextBecomesTheTreeOfItsObject();
    void changedElementsStayAlike_data();
    void changedElementsStayAlike();
    void everyChangeIsForwarded();
};

void tst_ParserAgreement::aTextBecomesTheTreeOfItsObject_data()
{
    QTest::addColumn<int>("hashSeed");

    for (const int seed : {0, 1, 77, 123456789}) {
        QTest::addRow("%d", seed) << seed;
    }
}

void tst_ParserAgreement::aTextBecomesTheTreeOfItsObject()
{
    QFETCH(int, hashSeed);
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    qSetGlobalQHashSeed(hashSeed);
    RandomText random(seed);
    LogCapture log;
    int trees = 0;
    for (int i = 0; i < 250; ++i) {
        const QByteArray text = random.description();
        const QString postfix = random.postfix();
        log.take();

        const Element expected = plainParse(text, postfix);
        const QList<LogLine> expectedLog = log.take();
        const Element tree = Parser().parseFromByteArray(text, postfix);

        QCOMPARE(toText(log.take()), toText(expectedLog));
        compareTrees(tree, expected);
        if (QTest::currentTestFailed()) {
            qInfo() << "the text was" << text;
            return;
        }
        trees += tree.isNull() ? 0 : 1;
    }
    QVERIFY(trees > 50);
}

void tst_ParserAgreement::changedElementsStayAlike_data()
{
    aTextBecomesTheTreeOfItsObject_data();
}

namespace {

/// Reads, writes, adds and removes what @p random says, and frames.
QByteArray changeAnywhere(const Element &tree, QRandomGenerator random)
{
    static const QStringList keys{"unit", "value",   "type",     "minLimit", "a",
                                  "new",  "value/b", "maxLimit", "z",        "newer"};
    QByteArray answers;
    Base::ListElements elements;
    tree->collectElements(elements, true);
    elements.append(tree);
    for (const Element &element : qAsConst(elements)) {
        for (int i = random.bounded(6); i > 0; --i) {
            const QString key = keys.at(random.bounded(keys.size()));
            const QVariant value = random.bounded(2) == 0 ? QVariant(random.bounded(3)) : "text";
            switch (random.bounded(5)) {
            case 0: element->addProperty(key, value); break;
            case 1: element->removeProperties({key}); break;
            case 2: element->addProperties({{key, value}, {"x", 1}, {"y", 2}}); break;
            case 3: answers += QByteArray::number(element->setProperty(key, value)); break;
            default: answers += element->hasProperty(key) ? "+" : "-"; break;
            }
        }
    }
    for (const auto format : {QJsonDocument::Compact, QJsonDocument::Indented}) {
        QByteArray text;
        Parser().frameToByteArray(tree, text, format);
        answers += text;
    }
    return answers + QJsonDocument(Parser().createJsonObject(tree)).toJson();
}

/// Addresses differ from tree to tree.
QString withoutAddresses(const QList<LogLine> &lines)
{
    return toText(lines).remove(QRegularExpression("0x[0-9a-f]+"));
}

} // namespace

void tst_ParserAgreement::changedElementsStayAlike()
{
    QFETCH(int, hashSeed);
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    qSetGlobalQHashSeed(hashSeed);
    RandomText random(seed);
    LogCapture log;
    for (quint32 i = 0; i < 80; ++i) {
        const QByteArray text = random.description();
        const QString postfix = random.postfix();
        const Element expected = plainParse(text, postfix);
        const Element tree = Parser().parseFromByteArray(text, postfix);
        QCOMPARE(tree.isNull(), expected.isNull());
        if (tree.isNull()) {
            continue;
        }
        // A hash takes its seed when it gets its first entry, whenever the seed changes.
        qSetGlobalQHashSeed(hashSeed + 1);
        log.take();

        const QByteArray expectedAnswers = changeAnywhere(expected, QRandomGenerator(seed + i));
        const QString expectedLog = withoutAddresses(log.take());
        const QByteArray answers = changeAnywhere(tree, QRandomGenerator(seed + i));

        QCOMPARE(withoutAddresses(log.take()), expectedLog);
        QCOMPARE(answers, expectedAnswers);
        compareTrees(tree, expected);
        if (QTest::currentTestFailed()) {
            qInfo() << text;
            return;
        }
        qSetGlobalQHashSeed(hashSeed);
    }
}

void tst_ParserAgreement::everyChangeIsForwarded()
{
    const Element root = Parser().parseFromByteArray(
        R"({"type":"treenode","value":{"n":{"type":"treenode","value":{
            "x":{"type":"int32","value":1},"y":{"type":"int32","value":2}}}}})",
        "config.json");
    QSignalSpy spy(root.data(), qOverload<>(&Base::propertyChanged));

    root->getLeaf("n/x")->setProperty("value", 5);
    root->getLeaf("n/y")->setProperty("value", 5);

    QCOMPARE(spy.count(), 2);
}

QTEST_GUILESS_MAIN(tst_ParserAgreement)

#include "tst_ParserAgreement.moc"
