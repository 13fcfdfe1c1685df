#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Leaf = ConfigurationDataValue;
using Element = Base::BaseClassSharedPointer;

namespace {

QJsonObject contentOf(const Base &element)
{
    QJsonObject json;
    element.getContentAsQJsonObject(json);
    return json;
}

/// What QDebug makes of an element: class and address.
QString printed(const Base &element)
{
    return QStringLiteral("%1(0x%2)")
        .arg(QString::fromLatin1(element.metaObject()->className()))
        .arg(reinterpret_cast<quintptr>(&element), 0, 16);
}

/// Frames itself in its own way.
class OwnContent : public Base
{
public:
    OwnContent() : Base(QJsonObject(), nullptr) { }

    void getContentAsQJsonObject(QJsonObject &json) const override
    {
        json.insert(QStringLiteral("isEmptyAtFirst"), json.isEmpty());
    }
};

} // namespace

class tst_TreeElementsFraming : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anElementWithoutPropertiesLeavesTheObject();
    void theObjectGivenIsNotCleared();
    void propertiesGoOutAsTheToolkitMakesThem();
    void anUnknownTypeConvertsNothing();
    void valuesGoOutInTheDataType_data();
    void valuesGoOutInTheDataType();
    void wideIntegersAreWrittenAsText_data();
    void wideIntegersAreWrittenAsText();
    void noInputIsWrittenAsNull_data();
    void noInputIsWrittenAsNull();
    void anInvalidValueIsReportedAndWrittenAsNull();
    void aWrongValueIsReportedAsItWasBefore();
    void wideIntegersReportTheTypeOfText();
    void aNullTextIsText();
    void storedValuesStayAsTheyAre();
    void hashesFromNestedWritesGoOutAsObjects();

    void childrenStandUnderTheValueKey();
    void anEmptyNodeWarnsAndHasAnEmptyObject();
    void aNodeWithoutPropertiesStillHasItsChildren();
    void childrenOverwriteAPropertyOfTheValueKey();
    void aNullChildIsLeftOut();
    void aChildFillsAnEmptyObjectByTheVirtualOperation();
    void keysAreAscendingAndEqualTreesGiveEqualText();
    void theDisplayPositionPlaysNoPart();
};

void tst_TreeElementsFraming::anElementWithoutPropertiesLeavesTheObject()
{
    const Leaf leaf({}, nullptr);
    QJsonObject json{{"former", 1}};
    LogCapture log;

    leaf.getContentAsQJsonObject(json);

    QCOMPARE(json, (QJsonObject{{"former", 1}}));
    COMPARE_LOG(log, warning("No properties found in configuration value!"));
}

void tst_TreeElementsFraming::theObjectGivenIsNotCleared()
{
    const Leaf leaf({{"unit", "mm"}, {"both", 2}}, nullptr);
    QJsonObject json{{"former", 1}, {"both", 1}};

    leaf.getContentAsQJsonObject(json);

    QCOMPARE(json, (QJsonObject{{"former", 1}, {"both", 2}, {"unit", "mm"}}));
}

void tst_TreeElementsFraming::propertiesGoOutAsTheToolkitMakesThem()
{
    const QJsonObject json{{"type", "int32"},
                           {"viewStart", 1.25},
                           {"unit", QJsonValue::Null},
                           {"list", QJsonArray{1.5, "b", QJsonObject{{"c", true}}}},
                           {"record", QJsonObject{{"d", QJsonArray()}}}};
    Leaf leaf(json, nullptr);
    leaf.addProperty("unsigned", 4000000000U);
    leaf.addProperty("gone", QVariant());
    LogCapture log;

    QJsonObject expected = json;
    expected.insert("unsigned", 4e9);
    expected.insert("gone", QJsonValue::Null);
    QCOMPARE(contentOf(leaf), expected);
    COMPARE_LOG(log);
}

void tst_TreeElementsFraming::anUnknownTypeConvertsNothing()
{
    Leaf unknown({{"type", "Int32"}, {"value", "abc"}, {"minLimit", true}}, nullptr);
    Leaf untyped({{"value", QJsonArray{1.5}}}, nullptr);
    unknown.addProperty("maxLimit", QVariant());
    untyped.addProperty("minLimit", QVariant(QVariant::Int));
    LogCapture log;

    QCOMPARE(contentOf(unknown), (QJsonObject{{"type", "Int32"},
                                              {"value", "abc"},
                                              {"minLimit", true},
                                              {"maxLimit", QJsonValue::Null}}));
    QCOMPARE(contentOf(untyped), (QJsonObject{{"value", QJsonArray{1.5}}, {"minLimit", 0}}));
    COMPARE_LOG(log);
}

void tst_TreeElementsFraming::valuesGoOutInTheDataType_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QJsonValue>("expected");

    QTest::newRow("boolean") << "boolean" << QVariant(true) << QJsonValue(true);
    QTest::newRow("boolean held as number") << "bit" << QVariant(1) << QJsonValue(true);
    QTest::newRow("int") << "int16" << QVariant(-5) << QJsonValue(-5);
    QTest::newRow("int held as text") << "int32" << QVariant("12") << QJsonValue(12);
    QTest::newRow("int held as double") << "int32" << QVariant(2.0) << QJsonValue(2);
    QTest::newRow("uint") << "uint32" << QVariant(4000000000U) << QJsonValue(4e9);
    QTest::newRow("float") << "float" << QVariant(1.5F) << QJsonValue(1.5);
    QTest::newRow("double held as text") << "double" << QVariant("0.25") << QJsonValue(0.25);
    QTest::newRow("string") << "string" << QVariant("a b") << QJsonValue("a b");
    QTest::newRow("string held as number") << "string" << QVariant(5) << QJsonValue("5");
    QTest::newRow("selector") << "selector" << QVariant("3") << QJsonValue(3);
    QTest::newRow("infinity") << "double" << QVariant(qInf()) << QJsonValue(QJsonValue::Null);
}

void tst_TreeElementsFraming::valuesGoOutInTheDataType()
{
    QFETCH(QString, type);
    QFETCH(QVariant, stored);
    QFETCH(QJsonValue, expected);
    Leaf leaf({{"type", type}}, nullptr);
    leaf.addProperties({{"value", stored}, {"minLimit", stored}, {"maxLimit", stored}});
    LogCapture log;

    QCOMPARE(
        contentOf(leaf),
        (QJsonObject{
            {"type", type}, {"value", expected}, {"minLimit", expected}, {"maxLimit", expected}}));
    COMPARE_LOG(log);
}

void tst_TreeElementsFraming::wideIntegersAreWrittenAsText_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("minLimit");
    QTest::addColumn<QString>("maxLimit");

    QTest::newRow("signed") << "int64"
                            << "-9007199254740993"
                            << "-9223372036854775808"
                            << "9223372036854775807";
    QTest::newRow("unsigned") << "uint64"
                              << "9007199254740993"
                              << "0"
                              << "18446744073709551615";
}

void tst_TreeElementsFraming::wideIntegersAreWrittenAsText()
{
    QFETCH(QString, type);
    QFETCH(QString, value);
    QFETCH(QString, minLimit);
    QFETCH(QString, maxLimit);
    const QJsonObject json{
        {"type", type}, {"value", value}, {"minLimit", minLimit}, {"maxLimit", maxLimit}, {"x", 1}};
    Leaf leaf(json, nullptr);
    LogCapture log;

    QCOMPARE(leaf.getValue().userType(),
             type == QLatin1String("int64") ? int(QMetaType::LongLong) : int(QMetaType::ULongLong));
    QCOMPARE(contentOf(leaf), json);

    QCOMPARE(leaf.setValue(5), Base::SetValueChanged);
    QCOMPARE(contentOf(leaf).value("value"), QJsonValue("5"));
    COMPARE_LOG(log);
}

void tst_TreeElementsFraming::noInputIsWrittenAsNull_data()
{
    QTest::addColumn<QVariant>("indicator");

    QTest::newRow("int8") << QVariant(QVariant::Int);
    QTest::newRow("int64") << QVariant(QVariant::LongLong);
    QTest::newRow("uint64") << QVariant(QVariant::ULongLong);
    QTest::newRow("float") << QVariant(static_cast<QVariant::Type>(QMetaType::Float));
    QTest::newRow("double") << QVariant(QVariant::Double);
    QTest::newRow("selector") << QVariant(QVariant::Int);
}

void tst_TreeElementsFraming::noInputIsWrittenAsNull()
{
    QFETCH(QVariant, indicator);
    const QString type = QString::fromLatin1(QTest::currentDataTag());
    const QJsonValue null(QJsonValue::Null);
    const QJsonObject json{{"type", type}, {"value", null}, {"minLimit", null}, {"maxLimit", null}};
    Leaf parsed(json, nullptr);
    Leaf written({{"type", type}}, nullptr);
    written.addProperties({{"value", indicator}, {"minLimit", indicator}, {"maxLimit", indicator}});
    LogCapture log;

    QCOMPARE(contentOf(parsed), json);
    QCOMPARE(contentOf(written), json);

    const Leaf again(contentOf(written), nullptr);
    QCOMPARE(again.getValue().userType(), indicator.userType());
    QVERIFY(again.isNumberNoInput() || again.isSelectorNoInput());
    COMPARE_LOG(log);
}

void tst_TreeElementsFraming::anInvalidValueIsReportedAndWrittenAsNull()
{
    LogCapture log;
    const Leaf leaf({{"type", "int32"}, {"value", "abc"}, {"unit", "mm"}}, nullptr);
    COMPARE_LOG(log, warning("Wrong value type in config 2 QVariant(QString, \"abc\")"));

    QCOMPARE(contentOf(leaf),
             (QJsonObject{{"type", "int32"}, {"value", QJsonValue::Null}, {"unit", "mm"}}));
    COMPARE_LOG(log, warning("Wrong type, property can't set 2 QVariant(Invalid)"));
}

void tst_TreeElementsFraming::aWrongValueIsReportedAsItWasBefore()
{
    Leaf leaf({{"type", "float"}}, nullptr);
    leaf.addProperty("maxLimit", "high");
    LogCapture log;

    QCOMPARE(contentOf(leaf), (QJsonObject{{"type", "float"}, {"maxLimit", QJsonValue::Null}}));
    COMPARE_LOG(log, warning("Wrong type, property can't set 38 QVariant(QString, \"high\")"));
    QCOMPARE(leaf.getProperty("maxLimit"), QVariant("high"));
}

void tst_TreeElementsFraming::wideIntegersReportTheTypeOfText()
{
    Leaf leaf({{"type", "uint64"}}, nullptr);
    leaf.addProperty("value", QVariantList{1});
    LogCapture log;

    QCOMPARE(contentOf(leaf), (QJsonObject{{"type", "uint64"}, {"value", QJsonValue::Null}}));
    COMPARE_LOG(log, warning("Wrong type, property can't set 10 "
                             "QVariant(QVariantList, (QVariant(int, 1)))"));
}

void tst_TreeElementsFraming::aNullTextIsText()
{
    Leaf leaf({{"type", "string"}}, nullptr);
    leaf.addProperty("value", QVariant(QVariant::String));
    LogCapture log;

    QCOMPARE(contentOf(leaf), (QJsonObject{{"type", "string"}, {"value", ""}}));
    COMPARE_LOG(log);
}

void tst_TreeElementsFraming::storedValuesStayAsTheyAre()
{
    Leaf leaf({{"type", "int64"}}, nullptr);
    leaf.addProperties({{"value", 5}, {"minLimit", QVariant(QVariant::LongLong)}});
    const Base::PropertyMap before = leaf.getProperties();

    contentOf(leaf);

    const Base::PropertyMap after = leaf.getProperties();
    QCOMPARE(after, before);
    QCOMPARE(after.value("value").userType(), int(QMetaType::Int));
    QCOMPARE(after.value("minLimit").userType(), int(QMetaType::LongLong));
    QVERIFY(after.value("minLimit").isNull());
}

void tst_TreeElementsFraming::hashesFromNestedWritesGoOutAsObjects()
{
    const QJsonObject record{{"a", QJsonObject{{"b", 1}, {"c", "kept"}}}};
    Leaf leaf({{"type", "record"}, {"value", record}}, nullptr);

    QCOMPARE(leaf.setProperty("value/a/b", 2), Base::SetValueChanged);

    QCOMPARE(leaf.getValue().userType(), int(QMetaType::QVariantHash));
    const QJsonObject expected{{"a", QJsonObject{{"b", 2}, {"c", "kept"}}}};
    QCOMPARE(contentOf(leaf), (QJsonObject{{"type", "record"}, {"value", expected}}));
}

void tst_TreeElementsFraming::childrenStandUnderTheValueKey()
{
    const QJsonObject leafJson{{"type", "int32"}, {"value", 4}};
    TreeNode root({{"type", "treenode"}, {"unit", "mm"}}, nullptr);
    const auto node = QSharedPointer<TreeNode>::create(QJsonObject{{"type", "treenode"}}, nullptr);
    node->addElement("leaf", Element(new Leaf(leafJson, nullptr)));
    root.addElement("node", node);
    root.addElement("x[1]", Element(new Leaf(leafJson, nullptr)));
    QJsonObject json{{"former", true}};
    LogCapture log;

    root.getContentAsQJsonObject(json);

    const QJsonObject nodeJson{{"type", "treenode"}, {"value", QJsonObject{{"leaf", leafJson}}}};
    QCOMPARE(json, (QJsonObject{{"former", true},
                                {"type", "treenode"},
                                {"unit", "mm"},
                                {"value", QJsonObject{{"node", nodeJson}, {"x[1]", leafJson}}}}));
    COMPARE_LOG(log);
}

void tst_TreeElementsFraming::anEmptyNodeWarnsAndHasAnEmptyObject()
{
    const TreeNode node({{"type", "treenode"}}, nullptr);
    LogCapture log;

    QCOMPARE(contentOf(node), (QJsonObject{{"type", "treenode"}, {"value", QJsonObject()}}));
    COMPARE_LOG(log, warning("Node has no childs! " + printed(node)));
}

void tst_TreeElementsFraming::aNodeWithoutPropertiesStillHasItsChildren()
{
    TreeNode node({}, nullptr);
    LogCapture log;

    QCOMPARE(contentOf(node), (QJsonObject{{"value", QJsonObject()}}));
    COMPARE_LOG(log, warning("No properties found in configuration value!"),
                warning("Node has no childs! " + printed(node)));

    node.addElement("a", Element(new Leaf({{"unit", "mm"}}, nullptr)));

    QCOMPARE(contentOf(node),
             (QJsonObject{{"value", QJsonObject{{"a", QJsonObject{{"unit", "mm"}}}}}}));
    COMPARE_LOG(log, warning("No properties found in configuration value!"));
}

void tst_TreeElementsFraming::childrenOverwriteAPropertyOfTheValueKey()
{
    TreeNode node({{"type", "treenode"}}, nullptr);
    node.addProperty("value", 5);
    LogCapture log;

    QCOMPARE(contentOf(node), (QJsonObject{{"type", "treenode"}, {"value", QJsonObject()}}));
    COMPARE_LOG(log, warning("Node has no childs! " + printed(node)));
    QCOMPARE(node.getProperty("value"), QVariant(5));
}

void tst_TreeElementsFraming::aNullChildIsLeftOut()
{
    const QJsonObject leafJson{{"type", "int32"}, {"value", 4}};
    TreeNode node({{"type", "treenode"}}, nullptr);
    node.addElement("broken", Element());
    LogCapture log;

    QCOMPARE(contentOf(node), (QJsonObject{{"type", "treenode"}, {"value", QJsonObject()}}));
    COMPARE_LOG(log, warning("Key has no value!"));

    node.addElement("a", Element(new Leaf(leafJson, nullptr)));
    node.addElement("worse", Element());

    QCOMPARE(contentOf(node),
             (QJsonObject{{"type", "treenode"}, {"value", QJsonObject{{"a", leafJson}}}}));
    COMPARE_LOG(log, warning("Key has no value!"), warning("Key has no value!"));
}

void tst_TreeElementsFraming::aChildFillsAnEmptyObjectByTheVirtualOperation()
{
    TreeNode node({{"type", "treenode"}}, nullptr);
    node.addElement("a", Element(new OwnContent));
    node.addElement("b", Element(new OwnContent));

    const QJsonObject own{{"isEmptyAtFirst", true}};
    QCOMPARE(contentOf(node).value("value").toObject(), (QJsonObject{{"a", own}, {"b", own}}));
}

void tst_TreeElementsFraming::keysAreAscendingAndEqualTreesGiveEqualText()
{
    const QStringList keys{"zeta", "Alpha", "beta", "10", "2"};
    TreeNode one({{"type", "treenode"}, {"b", 1}, {"a", 2}}, nullptr);
    TreeNode other({{"type", "treenode"}}, nullptr);
    other.addProperties({{"a", 2}, {"b", 1}});
    for (int i = 0; i < keys.size(); ++i) {
        one.addElement(keys.at(i), Element(new Leaf({{"unit", "mm"}}, nullptr)));
        other.addElement(keys.at(keys.size() - 1 - i),
                         Element(new Leaf({{"unit", "mm"}}, nullptr)));
    }

    const QByteArray text = QJsonDocument(contentOf(one)).toJson(QJsonDocument::Compact);

    QCOMPARE(text, QByteArray(R"({"a":2,"b":1,"type":"treenode","value":{"10":{"unit":"mm"},)"
                              R"("2":{"unit":"mm"},"Alpha":{"unit":"mm"},"beta":{"unit":"mm"},)"
                              R"("zeta":{"unit":"mm"}}})"));
    QCOMPARE(QJsonDocument(contentOf(other)).toJson(QJsonDocument::Compact), text);
}

void tst_TreeElementsFraming::theDisplayPositionPlaysNoPart()
{
    TreeNode node({{"type", "treenode"}}, nullptr);
    node.addElement("a", Element(new Leaf({{"displayPosition", 2}}, nullptr)));
    node.addElement("b", Element(new Leaf({{"displayPosition", 1}}, nullptr)));
    LogCapture log;

    QCOMPARE(contentOf(node).value("value").toObject().keys(), (QStringList{"a", "b"}));
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_TreeElementsFraming)

#include "tst_TreeElementsFraming.moc"
