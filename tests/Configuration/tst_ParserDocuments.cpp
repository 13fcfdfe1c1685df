#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/LogCapture.h"

#include <QJsonParseError>
#include <QSignalSpy>

namespace {

using Base = ConfigurationAndProcessDataBase;

const QString configurationPostfix = QStringLiteral("config.json");
const QString processPostfix = QStringLiteral("process.json");

Base::BaseClassSharedPointer parse(const QByteArray &json,
                                   const QString &postfix = configurationPostfix)
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(json, postfix);
}

QJsonObject toObject(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

LogLine parsingError(const QByteArray &json)
{
    QJsonParseError error;
    QJsonDocument::fromJson(json, &error);
    return warning(QStringLiteral("Parsing error:  \"%1\"").arg(error.errorString()));
}

} // namespace

class tst_ParserDocuments : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void jsonErrorsGiveNull_data();
    void jsonErrorsGiveNull();
    void topLevelArrayHasNoType();
    void topLevelObjectWithoutTypeGivesNull();

    void leafClassFollowsThePostfix_data();
    void leafClassFollowsThePostfix();
    void unknownPostfixFailsAtALeaf_data();
    void unknownPostfixFailsAtALeaf();
    void treeNodesAloneParseUnderAnyPostfix();
    void createNodeTakesThePostfixAsItStands();
    void createNodeFailsAsAWhole_data();
    void createNodeFailsAsAWhole();

    void everyOtherTypeMakesALeaf_data();
    void everyOtherTypeMakesALeaf();
    void leafWithoutValueIsNoFailure();
    void leafKeepsAnObjectAsItsValue();
    void unknownKeysAreKept();

    void childsStandUnderTheirKeys();
    void treeNodeWithoutValueGivesNull();
    void valueThatIsNoObjectMakesAnEmptyNode_data();
    void valueThatIsNoObjectMakesAnEmptyNode();
    void childThatIsNoObjectGivesNull_data();
    void childThatIsNoObjectGivesNull();
    void everyAncestorOfABadElementIsReported();
    void firstBadChildEndsTheParse();

    void textIsTakenAsUtf8();
    void variantsAreTakenByTheirBytes();
    void invalidVariantIsAnEmptyDocument();
};

void tst_ParserDocuments::jsonErrorsGiveNull_data()
{
    QTest::addColumn<QByteArray>("json");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("blank") << QByteArray("  \n");
    QTest::newRow("text") << QByteArray("value");
    QTest::newRow("unclosed") << QByteArray(R"({"type":"int32")");
    QTest::newRow("trailing comma") << QByteArray(R"({"type":"int32",})");
    QTest::newRow("garbage after the object") << QByteArray(R"({"type":"int32"} x)");
    QTest::newRow("bare number") << QByteArray("5");
}

void tst_ParserDocuments::jsonErrorsGiveNull()
{
    QFETCH(QByteArray, json);
    LogCapture log;

    const auto root = parse(json);

    QVERIFY(root.isNull());
    COMPARE_LOG(log, parsingError(json));
}

void tst_ParserDocuments::topLevelArrayHasNoType()
{
    LogCapture log;

    const auto root = parse(R"([{"type":"int32","value":1}])");

    QVERIFY(root.isNull());
    COMPARE_LOG(log, warning("key 'type' not found in JSON object"));
}

void tst_ParserDocuments::topLevelObjectWithoutTypeGivesNull()
{
    LogCapture log;

    QVERIFY(parse("{}").isNull());
    COMPARE_LOG(log, warning("key 'type' not found in JSON object"));
    QVERIFY(parse(R"({"Type":"treenode","value":{}})").isNull());
    COMPARE_LOG(log, warning("key 'type' not found in JSON object"));
}

void tst_ParserDocuments::leafClassFollowsThePostfix_data()
{
    QTest::addColumn<QString>("postfix");
    QTest::addColumn<QByteArray>("className");

    const QByteArray configuration = ConfigurationDataValue::staticMetaObject.className();
    const QByteArray process = ProcessDataValue::staticMetaObject.className();
    QTest::newRow("configuration") << "config.json" << configuration;
    QTest::newRow("process") << "process.json" << process;
    QTest::newRow("configuration with a dot") << ".config.json" << configuration;
    QTest::newRow("process with a dot") << ".process.json" << process;
}

void tst_ParserDocuments::leafClassFollowsThePostfix()
{
    QFETCH(QString, postfix);
    QFETCH(QByteArray, className);
    LogCapture log;

    const auto root = parse(R"({"type":"treenode","value":{
        "a":{"type":"int32","value":1},
        "b":{"type":"treenode","value":{"c":{"type":"string","value":"x"}}}}})",
                            postfix);

    COMPARE_LOG(log);
    QVERIFY(!root.isNull());
    QCOMPARE(QByteArray(root->metaObject()->className()),
             QByteArray(ConfigurationAndProcessDataTreeNode::staticMetaObject.className()));
    QCOMPARE(QByteArray(root->getLeaf("a")->metaObject()->className()), className);
    QCOMPARE(QByteArray(root->getLeaf("b/c")->metaObject()->className()), className);
}

void tst_ParserDocuments::unknownPostfixFailsAtALeaf_data()
{
    QTest::addColumn<QString>("postfix");
    QTest::addColumn<QString>("reported");

    QTest::newRow("unknown") << "menu.json"
                             << "menu.json";
    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("a dot alone") << "."
                                 << "";
    QTest::newRow("other case") << "Config.json"
                                << "Config.json";
    QTest::newRow("part of one") << "json"
                                 << "json";
    QTest::newRow("unknown with a dot") << ".menu.json"
                                        << "menu.json";
    QTest::newRow("only one dot is removed") << "..config.json"
                                             << ".config.json";
}

void tst_ParserDocuments::unknownPostfixFailsAtALeaf()
{
    QFETCH(QString, postfix);
    QFETCH(QString, reported);
    LogCapture log;

    const auto leaf = parse(R"({"type":"int32","value":1})", postfix);

    QVERIFY(leaf.isNull());
    COMPARE_LOG(log, warning(QStringLiteral("wrong file postfix \"%1\"").arg(reported)));

    const auto root = parse(R"({"type":"treenode","value":{"a":{"type":"int32","value":1}}})",
                            postfix);

    QVERIFY(root.isNull());
    COMPARE_LOG(log, warning(QStringLiteral("wrong file postfix \"%1\"").arg(reported)),
                warning("object is invalid \"a\""));
}

void tst_ParserDocuments::treeNodesAloneParseUnderAnyPostfix()
{
    LogCapture log;

    const auto root = parse(R"({"type":"treenode","value":{"a":{"type":"treenode","value":{}}}})",
                            "menu.json");

    COMPARE_LOG(log);
    QVERIFY(!root.isNull());
    QVERIFY(root->isUrlValid("a"));
}

void tst_ParserDocuments::createNodeTakesThePostfixAsItStands()
{
    const ConfigurationAndProcessDataParser parser;
    const QJsonObject json = toObject(R"({"type":"int32","value":1})");
    LogCapture log;

    QVERIFY(!parser.createNode(json, "config.json").isNull());
    COMPARE_LOG(log);
    QVERIFY(parser.createNode(json, ".config.json").isNull());
    COMPARE_LOG(log, warning("wrong file postfix \".config.json\""));
}

void tst_ParserDocuments::createNodeFailsAsAWhole_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("reported");

    const QString noType = QStringLiteral("key 'type' not found in JSON object");
    const QString badA = QStringLiteral("object is invalid \"a\"");
    QTest::newRow("nothing") << QByteArray("{}") << QStringList(noType);
    QTest::newRow("no type") << QByteArray(R"({"value":{}})") << QStringList(noType);
    QTest::newRow("no children") << QByteArray(R"({"type":"treenode","unit":"m"})")
                                 << QStringList(
                                        R"(childs information is invalid ("type", "unit"))");
    QTest::newRow("child as number")
        << QByteArray(R"({"type":"treenode","value":{"a":{"type":"int32"},"b":7,"c":8}})")
        << QStringList(R"(non object child element in tree node found "b")");
    QTest::newRow("child without type")
        << QByteArray(R"({"type":"treenode","value":{"a":{"value":1},"b":{}}})")
        << QStringList{noType, badA};
    QTest::newRow("grandchild as text")
        << QByteArray(R"({"type":"treenode","value":{"a":{"type":"treenode","value":{"b":"c"}}}})")
        << QStringList{R"(non object child element in tree node found "b")", badA};
}

/// From an object the same as from a text, which other code reads.
void tst_ParserDocuments::createNodeFailsAsAWhole()
{
    QFETCH(QByteArray, json);
    QFETCH(QStringList, reported);
    QList<LogLine> expected;
    for (const QString &text : std::as_const(reported)) {
        expected.append(warning(text));
    }
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser()
                .createNode(toObject(json), configurationPostfix)
                .isNull());
    QCOMPARE(toText(log.take()), toText(expected));

    QVERIFY(parse(json).isNull());
    QCOMPARE(toText(log.take()), toText(expected));
}

void tst_ParserDocuments::everyOtherTypeMakesALeaf_data()
{
    QTest::addColumn<QByteArray>("type");

    QTest::newRow("known type") << QByteArray(R"("double")");
    QTest::newRow("unknown type") << QByteArray(R"("colour")");
    QTest::newRow("empty text") << QByteArray(R"("")");
    QTest::newRow("other case") << QByteArray(R"("TreeNode")");
    QTest::newRow("number") << QByteArray("5");
    QTest::newRow("null") << QByteArray("null");
    QTest::newRow("boolean") << QByteArray("true");
    QTest::newRow("list") << QByteArray(R"(["treenode"])");
    QTest::newRow("object") << QByteArray(R"({"treenode":1})");
}

void tst_ParserDocuments::everyOtherTypeMakesALeaf()
{
    QFETCH(QByteArray, type);
    LogCapture log;

    const auto leaf = parse("{\"type\":" + type + "}");

    COMPARE_LOG(log);
    QVERIFY(!leaf.dynamicCast<ConfigurationDataValue>().isNull());
}

void tst_ParserDocuments::leafWithoutValueIsNoFailure()
{
    LogCapture log;

    const auto leaf = parse(R"({"type":"int32"})");

    COMPARE_LOG(log);
    QVERIFY(!leaf.isNull());
    QVERIFY(!leaf->hasProperty("value"));
}

void tst_ParserDocuments::leafKeepsAnObjectAsItsValue()
{
    LogCapture log;

    const auto leaf = parse(R"({"type":"record","value":{"a":{"type":"int32","value":1},"b":2}})");

    COMPARE_LOG(log);
    QVERIFY(!leaf.isNull());
    QCOMPARE(leaf->getNumberOfChilds(), 0);
    const QVariant value = leaf->getProperty("value");
    QCOMPARE(int(value.type()), int(QVariant::Map));
    QCOMPARE(value.toMap().keys(), (QStringList{"a", "b"}));
    QCOMPARE(value.toMap().value("b").toInt(), 2);
}

void tst_ParserDocuments::unknownKeysAreKept()
{
    LogCapture log;

    const auto root = parse(R"({"type":"treenode","value":{},"colour":"red","sizes":[1,2]})");

    COMPARE_LOG(log);
    QVERIFY(!root.isNull());
    QCOMPARE(root->getProperties().size(), 3);
    QCOMPARE(root->getProperty("type"), QVariant("treenode"));
    QCOMPARE(root->getProperty("colour"), QVariant("red"));
    QCOMPARE(root->getProperty("sizes"), QVariant(QVariantList{1, 2}));
}

void tst_ParserDocuments::childsStandUnderTheirKeys()
{
    LogCapture log;

    const auto root = parse(R"({"type":"treenode","value":{
        "b":{"type":"int32","value":2},
        "a":{"type":"treenode","value":{"c d":{"type":"int32","value":3}}},
        "":{"type":"int32","value":4}}})");

    COMPARE_LOG(log);
    QVERIFY(!root.isNull());
    QCOMPARE(root->getNumberOfChilds(), 3);
    QCOMPARE(root->getLeafConfigurationData("b")->getValue(), QVariant(2));
    QCOMPARE(root->getLeafConfigurationData("a/c d")->getValue(), QVariant(3));
    QCOMPARE(root->getChildMap().value("")->getProperty("value"), QVariant(4));
    QVERIFY(root->parent() == nullptr);
    QVERIFY(root->getLeaf("b")->parent() == nullptr);
}

void tst_ParserDocuments::treeNodeWithoutValueGivesNull()
{
    LogCapture log;

    const auto root = parse(R"({"type":"treenode","unit":"m","Value":{}})");

    QVERIFY(root.isNull());
    COMPARE_LOG(log, warning(R"(childs information is invalid ("Value", "type", "unit"))"));
}

void tst_ParserDocuments::valueThatIsNoObjectMakesAnEmptyNode_data()
{
    QTest::addColumn<QByteArray>("value");

    QTest::newRow("array") << QByteArray(R"([{"type":"int32"}])");
    QTest::newRow("number") << QByteArray("7");
    QTest::newRow("text") << QByteArray(R"("a")");
    QTest::newRow("null") << QByteArray("null");
    QTest::newRow("boolean") << QByteArray("false");
    QTest::newRow("empty object") << QByteArray("{}");
}

void tst_ParserDocuments::valueThatIsNoObjectMakesAnEmptyNode()
{
    QFETCH(QByteArray, value);
    LogCapture log;

    const auto root = parse("{\"type\":\"treenode\",\"value\":" + value + "}");

    COMPARE_LOG(log);
    QVERIFY(!root.dynamicCast<ConfigurationAndProcessDataTreeNode>().isNull());
    QCOMPARE(root->getNumberOfChilds(), 0);
    QVERIFY(!root->hasProperty("value"));
}

void tst_ParserDocuments::childThatIsNoObjectGivesNull_data()
{
    QTest::addColumn<QByteArray>("child");

    QTest::newRow("number") << QByteArray("7");
    QTest::newRow("text") << QByteArray(R"("a")");
    QTest::newRow("array") << QByteArray("[]");
    QTest::newRow("null") << QByteArray("null");
    QTest::newRow("boolean") << QByteArray("true");
}

void tst_ParserDocuments::childThatIsNoObjectGivesNull()
{
    QFETCH(QByteArray, child);
    LogCapture log;

    const auto root = parse(R"({"type":"treenode","value":{"a":{"type":"int32","value":1},"b":)"
                            + child + R"(,"c":{"type":"int32","value":1}}})");

    QVERIFY(root.isNull());
    COMPARE_LOG(log, warning("non object child element in tree node found \"b\""));
}

void tst_ParserDocuments::everyAncestorOfABadElementIsReported()
{
    LogCapture log;

    const auto root = parse(R"({"type":"treenode","value":{
        "a":{"type":"treenode","value":{
            "b":{"type":"treenode","value":{"c":{"type":"treenode"}}}}},
        "good":{"type":"int32","value":1}}})");

    QVERIFY(root.isNull());
    COMPARE_LOG(log, warning(R"(childs information is invalid ("type"))"),
                warning("object is invalid \"c\""), warning("object is invalid \"b\""),
                warning("object is invalid \"a\""));
}

void tst_ParserDocuments::firstBadChildEndsTheParse()
{
    LogCapture log;

    const auto root = parse(R"({"type":"treenode","value":{"z":5,"b":{"value":1},"a":{"type":
        "int32","value":1}}})");

    QVERIFY(root.isNull());
    COMPARE_LOG(log, warning("key 'type' not found in JSON object"),
                warning("object is invalid \"b\""));
}

void tst_ParserDocuments::textIsTakenAsUtf8()
{
    const ConfigurationAndProcessDataParser parser;
    const QString text = QString::fromUtf8("Messgr\xC3\xB6\xC3\x9F"
                                           "e \xE2\x84\x83 \xF0\x9F\x8C\xA1");
    LogCapture log;

    const auto leaf = parser.parseFromJson(
        QStringLiteral(R"({"type":"string","value":"%1"})").arg(text), ".config.json");

    COMPARE_LOG(log);
    QVERIFY(!leaf.isNull());
    QCOMPARE(leaf->getProperty("value"), QVariant(text));
    QVERIFY(parser.parseFromJson(QString(), configurationPostfix).isNull());
    COMPARE_LOG(log, parsingError(""));
}

void tst_ParserDocuments::variantsAreTakenByTheirBytes()
{
    const ConfigurationAndProcessDataParser parser;
    const QByteArray json = R"({"type":"int32","value":12})";
    LogCapture log;

    const auto ofBytes = parser.parseFromJson(QVariant(json), configurationPostfix);
    const auto ofText = parser.parseFromJson(QVariant(QString::fromUtf8(json)), processPostfix);

    COMPARE_LOG(log);
    QVERIFY(!ofBytes.dynamicCast<ConfigurationDataValue>().isNull());
    QCOMPARE(ofBytes->getProperty("value"), QVariant(12));
    QVERIFY(!ofText.dynamicCast<ProcessDataValue>().isNull());
    QCOMPARE(ofText->getProperty("value"), QVariant(12));
}

void tst_ParserDocuments::invalidVariantIsAnEmptyDocument()
{
    const ConfigurationAndProcessDataParser parser;
    LogCapture log;

    QVERIFY(parser.parseFromJson(QVariant(), configurationPostfix).isNull());
    COMPARE_LOG(log, parsingError(""));
    QVERIFY(parser.parseFromJson(QVariant(QVariantMap{{"type", "int32"}}), configurationPostfix)
                .isNull());
    COMPARE_LOG(log, parsingError(""));
}

QTEST_GUILESS_MAIN(tst_ParserDocuments)
#include "tst_ParserDocuments.moc"
