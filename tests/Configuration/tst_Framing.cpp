#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/LogCapture.h"

#include <QJsonArray>
#include <QSignalSpy>

#include <limits>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Tools = ConfigurationAndProcessDataTools;

Base::BaseClassSharedPointer parse(const QByteArray &json,
                                   const QString &postfix = QStringLiteral("config.json"))
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(json, postfix);
}

QByteArray frame(const Base::BaseClassSharedPointer &root)
{
    QByteArray text;
    const bool framed = ConfigurationAndProcessDataParser().frameToByteArray(
        root, text, QJsonDocument::Compact);
    return framed ? text : QByteArray("(not framed)");
}

/// The lines that @p messages print, as a debug stream words the values.
template <class... Values>
LogLine warningOf(const Values &...values)
{
    QString text;
    {
        QDebug stream(&text);
        (stream << ... << values);
    }
    return warning(text.trimmed());
}

} // namespace

class tst_Framing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nullRootHasAnEmptyJsonObject();
    void jsonObjectHoldsTheWholeTree();
    void nullRootLeavesTheOutput();
    void outputIsOverwritten();
    void formatIsThatAskedFor();
    void keysStandInAscendingOrder();
    void equalTreesGiveEqualBytes();
    void framingChangesNothing();
    void elementWithoutPropertiesIsAnEmptyObject();
    void emptyNodeComesBackEmpty();

    void integersOf64BitsAreText_data();
    void integersOf64BitsAreText();
    void limitsOf64BitsAreText();
    void noInputIsNull_data();
    void noInputIsNull();
    void limitsWithoutInputAreNull();
    void valueOfUnknownTypeStaysAsItIs();
    void failedConversionIsFramedAsNull();
    void processLeafFramesItsProperties();
    void writtenValuesAreFramed();
};

void tst_Framing::nullRootHasAnEmptyJsonObject()
{
    LogCapture log;

    QCOMPARE(ConfigurationAndProcessDataParser().createJsonObject({}), QJsonObject());
    COMPARE_LOG(log, warning("Root-Node is undefined!"));
}

void tst_Framing::jsonObjectHoldsTheWholeTree()
{
    const QJsonObject json{
        {"type", "treenode"},
        {"schemeVersion", 1},
        {"value", QJsonObject{{"a", QJsonObject{{"type", "double"}, {"value", 1.5}}}}}};
    const auto root = parse(QJsonDocument(json).toJson());
    LogCapture log;

    QCOMPARE(ConfigurationAndProcessDataParser().createJsonObject(root), json);
    COMPARE_LOG(log);
}

void tst_Framing::nullRootLeavesTheOutput()
{
    QByteArray text = "before";
    LogCapture log;

    QVERIFY(
        !ConfigurationAndProcessDataParser().frameToByteArray({}, text, QJsonDocument::Compact));
    QCOMPARE(text, QByteArray("before"));
    COMPARE_LOG(log, warning("Root node is undefined!"));
}

void tst_Framing::outputIsOverwritten()
{
    QByteArray text = "before";

    QVERIFY(ConfigurationAndProcessDataParser().frameToByteArray(
        parse(R"({"type":"int32","value":5})"), text, QJsonDocument::Compact));
    QCOMPARE(text, QByteArray(R"({"type":"int32","value":5})"));
}

void tst_Framing::formatIsThatAskedFor()
{
    const ConfigurationAndProcessDataParser parser;
    const auto root = parse(R"({"type":"int32","value":5})");
    QByteArray compact;
    QByteArray indented;

    QVERIFY(parser.frameToByteArray(root, compact, QJsonDocument::Compact));
    QVERIFY(parser.frameToByteArray(root, indented, QJsonDocument::Indented));

    QCOMPARE(compact, QByteArray(R"({"type":"int32","value":5})"));
    QCOMPARE(indented, QByteArray("{\n    \"type\": \"int32\",\n    \"value\": 5\n}\n"));
}

void tst_Framing::keysStandInAscendingOrder()
{
    const auto root = parse(R"({"value":{
        "z":{"value":1,"type":"int32","displayPosition":1},
        "B":{"value":2,"type":"int32","displayPosition":2},
        "a":{"value":3,"type":"int32","displayPosition":3}},"unit":"m","type":"treenode"})");

    QCOMPARE(frame(root), QByteArray(R"({"type":"treenode","unit":"m","value":{)"
                                     R"("B":{"displayPosition":2,"type":"int32","value":2},)"
                                     R"("a":{"displayPosition":3,"type":"int32","value":3},)"
                                     R"("z":{"displayPosition":1,"type":"int32","value":1}}})"));
}

void tst_Framing::equalTreesGiveEqualBytes()
{
    const auto makeTree = [](const QStringList &keys) {
        auto node = QSharedPointer<ConfigurationAndProcessDataTreeNode>::create(
            QJsonObject{{"type", "treenode"}}, nullptr);
        for (const QString &key : keys) {
            node->addProperty("property " + key, key);
            node->addElement(key, parse(R"({"type":"int32","value":5})"));
        }
        return node;
    };
    QStringList keys;
    for (int i = 0; i < 200; ++i) {
        keys.append(QString::number(i * 7919));
    }
    QStringList reversed = keys;
    std::reverse(reversed.begin(), reversed.end());

    const auto tree = makeTree(keys);

    QCOMPARE(frame(tree), frame(tree));
    QCOMPARE(frame(makeTree(reversed)), frame(tree));
}

void tst_Framing::framingChangesNothing()
{
    const auto root = parse(R"({"type":"treenode","value":{
        "a":{"type":"int64","value":"9","minLimit":null},
        "b":{"type":"record","value":{"x":[1,"2",null]}}}})");
    QVERIFY(!root.isNull());
    const auto leaf = root->getLeaf("a");
    const auto before = leaf->getProperties();
    const auto rootBefore = root->getProperties();
    QSignalSpy atRoot(root.data(), QOverload<>::of(&Base::propertyChanged));

    frame(root);

    QCOMPARE(leaf->getProperties(), before);
    QCOMPARE(leaf->getProperty("value").userType(), int(QMetaType::LongLong));
    QCOMPARE(leaf->getProperty("minLimit").userType(), int(QMetaType::LongLong));
    QCOMPARE(root->getProperties(), rootBefore);
    QCOMPARE(root->getNumberOfChilds(), 2);
    QCOMPARE(atRoot.count(), 0);
}

void tst_Framing::elementWithoutPropertiesIsAnEmptyObject()
{
    const Base::BaseClassSharedPointer leaf = QSharedPointer<ConfigurationDataValue>::create(
        QJsonObject(), nullptr);
    LogCapture log;

    QCOMPARE(frame(leaf), QByteArray("{}"));
    COMPARE_LOG(log, warning("No properties found in configuration value!"));
}

void tst_Framing::emptyNodeComesBackEmpty()
{
    const auto root = parse(R"({"type":"treenode","value":[]})");
    LogCapture log;

    const QByteArray text = frame(root);

    COMPARE_LOG(log, warningOf("Node has no childs!", static_cast<const QObject *>(root.data())));
    QCOMPARE(text, QByteArray(R"({"type":"treenode","value":{}})"));
    const auto parsed = parse(text);
    COMPARE_LOG(log);
    QVERIFY(!parsed.dynamicCast<ConfigurationAndProcessDataTreeNode>().isNull());
    QCOMPARE(parsed->getNumberOfChilds(), 0);
}

void tst_Framing::integersOf64BitsAreText_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("text");

    using Signed = std::numeric_limits<qint64>;
    using Unsigned = std::numeric_limits<quint64>;
    QTest::newRow("smallest") << QByteArray("int64") << QVariant(Signed::min())
                              << QByteArray("-9223372036854775808");
    QTest::newRow("largest signed")
        << QByteArray("int64") << QVariant(Signed::max()) << QByteArray("9223372036854775807");
    QTest::newRow("largest") << QByteArray("uint64") << QVariant(Unsigned::max())
                             << QByteArray("18446744073709551615");
    QTest::newRow("past the integers of a double")
        << QByteArray("uint64") << QVariant(Q_UINT64_C(9007199254740993))
        << QByteArray("9007199254740993");
    QTest::newRow("zero") << QByteArray("int64") << QVariant(Q_INT64_C(0)) << QByteArray("0");
}

void tst_Framing::integersOf64BitsAreText()
{
    QFETCH(QByteArray, type);
    QFETCH(QVariant, value);
    QFETCH(QByteArray, text);
    const auto leaf = parse("{\"type\":\"" + type + "\",\"value\":\"7\"}");
    QVERIFY(!leaf.isNull());
    QCOMPARE(leaf->setProperty("value", value), Base::SetValueChanged);
    LogCapture log;

    const QByteArray framed = frame(leaf);
    const auto parsed = parse(framed);

    COMPARE_LOG(log);
    QCOMPARE(framed, "{\"type\":\"" + type + "\",\"value\":\"" + text + "\"}");
    QCOMPARE(parsed->getProperty("value").userType(), value.userType());
    QCOMPARE(parsed->getProperty("value"), value);
}

void tst_Framing::limitsOf64BitsAreText()
{
    const QByteArray json = R"({"maxLimit":"9223372036854775807","minLimit":"-5",)"
                            R"("type":"int64","value":"12"})";
    const auto leaf = parse(
        R"({"type":"int64","value":12,"minLimit":-5,"maxLimit":"9223372036854775807"})");

    const QByteArray framed = frame(leaf);

    QCOMPARE(framed, json);
    const auto parsed = parse(framed);
    QCOMPARE(parsed->getProperty("minLimit").userType(), int(QMetaType::LongLong));
    QCOMPARE(parsed->getProperty("minLimit"), QVariant(Q_INT64_C(-5)));
    QCOMPARE(parsed->getProperty("maxLimit"), QVariant(std::numeric_limits<qint64>::max()));
}

void tst_Framing::noInputIsNull_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<int>("metaType");

    QTest::newRow("int8") << QByteArray("int8") << int(QMetaType::Int);
    QTest::newRow("int32") << QByteArray("int32") << int(QMetaType::Int);
    QTest::newRow("uint16") << QByteArray("uint16") << int(QMetaType::UInt);
    QTest::newRow("int64") << QByteArray("int64") << int(QMetaType::LongLong);
    QTest::newRow("uint64") << QByteArray("uint64") << int(QMetaType::ULongLong);
    QTest::newRow("float") << QByteArray("float") << int(QMetaType::Float);
    QTest::newRow("double") << QByteArray("double") << int(QMetaType::Double);
    QTest::newRow("selector") << QByteArray("selector") << int(QMetaType::Int);
}

void tst_Framing::noInputIsNull()
{
    QFETCH(QByteArray, type);
    QFETCH(int, metaType);
    const auto leaf = parse("{\"type\":\"" + type + "\",\"value\":1}");
    QVERIFY(!leaf.isNull());
    leaf->setProperty("value", Tools::getNoInputValueIndicator(QMetaType::Type(metaType)));
    LogCapture log;

    const QByteArray framed = frame(leaf);
    const auto parsed = parse(framed);

    COMPARE_LOG(log);
    QCOMPARE(framed, "{\"type\":\"" + type + "\",\"value\":null}");
    QCOMPARE(parsed->getProperty("value").userType(), metaType);
    QVERIFY(Tools::isNoInputValueIndicatorSet(parsed->getProperty("value")));
    QVERIFY(parsed->isNumberNoInput() || parsed->isSelectorNoInput());
}

void tst_Framing::limitsWithoutInputAreNull()
{
    const QByteArray json = R"({"maxLimit":null,"minLimit":null,"type":"double","value":0})";
    LogCapture log;

    const auto leaf = parse(json);

    QCOMPARE(frame(leaf), json);
    COMPARE_LOG(log);
    QVERIFY(Tools::isNoInputValueIndicatorSet(leaf->getProperty("minLimit")));
    QVERIFY(!Tools::isNoInputValueIndicatorSet(leaf->getProperty("value")));
}

void tst_Framing::valueOfUnknownTypeStaysAsItIs()
{
    const QByteArray json =
        R"({"maxLimit":"x","type":"record","value":{"a":[1,true,null,"b"],"c":{"d":1.5}}})";
    LogCapture log;

    QCOMPARE(frame(parse(json)), json);
    COMPARE_LOG(log);
}

void tst_Framing::failedConversionIsFramedAsNull()
{
    LogCapture log;
    const auto root = parse(R"({"type":"treenode","value":{"a":{"type":"int32","value":"many"}}})");
    COMPARE_LOG(log,
                warningOf("Wrong value type in config", int(QMetaType::Int), QVariant("many")));

    const QByteArray framed = frame(root);

    COMPARE_LOG(log, warningOf("Wrong type, property can't set", int(QMetaType::Int), QVariant()));
    QCOMPARE(framed,
             QByteArray(R"({"type":"treenode","value":{"a":{"type":"int32","value":null}}})"));
}

void tst_Framing::processLeafFramesItsProperties()
{
    const QByteArray json = R"({"type":"treenode","value":{"a":{"offsetSharedMemory":8,)"
                            R"("readOnly":true,"sizeMetadata":4,"sizeValue":4,"type":"int32",)"
                            R"("value":5}}})";
    LogCapture log;

    const auto root = parse(json, "process.json");

    QVERIFY(!root->getLeafProcessDataValue("a").isNull());
    QCOMPARE(frame(root), json);
    COMPARE_LOG(log);
}

void tst_Framing::writtenValuesAreFramed()
{
    const auto root = parse(R"({"type":"treenode","value":{
        "a":{"type":"float","value":1},"b":{"type":"string","value":"x"}}})");
    QVERIFY(!root.isNull());

    // What a caller stores is brought to the type of the element on its way out.
    QCOMPARE(root->getLeafConfigurationData("a")->setValue("2.5"), Base::SetValueChanged);
    QCOMPARE(root->getLeafConfigurationData("b")->setValue(7), Base::SetValueChanged);
    root->getLeaf("b")->addProperty("unit", "m");

    QCOMPARE(frame(root),
             QByteArray(R"({"type":"treenode","value":{"a":{"type":"float","value":2.5},)"
                        R"("b":{"type":"string","unit":"m","value":"7"}}})"));
}

QTEST_GUILESS_MAIN(tst_Framing)
#include "tst_Framing.moc"
