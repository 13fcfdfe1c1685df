#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/LogCapture.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QtTest>

#include <limits>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Leaf = ConfigurationDataValue;

namespace {

/// Gives access to what only derived classes see.
class Opened : public Base
{
public:
    using Base::Base;
    using Base::m_dataTypeMap;
};

} // namespace

class tst_TreeElementsInitialisation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eachClassHasItsOwnMetaObject();
    void theParentGivenIsTheParent();
    void aNewElementHasNoChildren();
    void theDataTypeMapIsTheOneOfTheVocabulary();

    void everyKeyBecomesAProperty();
    void anEmptyObjectGivesNoProperties();
    void childrenOfATreeNodeAreNoProperty();
    void limitsOfATreeNodeAreKeptAsTheyAre();
    void valueAndLimitsTakeTheDataType_data();
    void valueAndLimitsTakeTheDataType();
    void integersAreHeldAsTheToolkitConvertsThem();
    void otherKeysAreNotConverted();
    void anUnknownTypeConvertsNothing();
    void aTypeThatIsNoTextCountsAsEmpty();
    void keysAreComparedWithTheirCase();
    void anObjectAsValueOfALeafIsKeptAsAMap();
    void jsonNullIsTheNoInputIndicatorOfTheType_data();
    void jsonNullIsTheNoInputIndicatorOfTheType();
    void jsonNullOfAnUnknownTypeIsKept();
    void jsonNullInABooleanIsAWrongValue();
    void jsonNullInATextIsText();
    void aWrongValueIsKeptAsInvalidEntry();
    void eachWrongEntryIsReportedInTheOrderOfKeys();
    void initialisingAgainOverwritesAndKeepsTheRest();
};

void tst_TreeElementsInitialisation::eachClassHasItsOwnMetaObject()
{
    const QMetaObject &base = Base::staticMetaObject;

    QCOMPARE(base.className(), "ConfigurationAndProcessDataBase");
    QCOMPARE(TreeNode::staticMetaObject.className(), "ConfigurationAndProcessDataTreeNode");
    QCOMPARE(Leaf::staticMetaObject.className(), "ConfigurationDataValue");
    QCOMPARE(ProcessDataValue::staticMetaObject.className(), "ProcessDataValue");
    QCOMPARE(base.superClass(), &QObject::staticMetaObject);
    QCOMPARE(TreeNode::staticMetaObject.superClass(), &base);
    QCOMPARE(Leaf::staticMetaObject.superClass(), &base);
    QCOMPARE(ProcessDataValue::staticMetaObject.superClass(), &base);
    QCOMPARE(TreeNode({}, nullptr).metaObject(), &TreeNode::staticMetaObject);
    QCOMPARE(Leaf({}, nullptr).metaObject(), &Leaf::staticMetaObject);
}

void tst_TreeElementsInitialisation::theParentGivenIsTheParent()
{
    QObject parent;

    const auto *leaf = new Leaf({}, &parent);
    const auto *node = new TreeNode({}, &parent);

    QCOMPARE(leaf->parent(), &parent);
    QCOMPARE(node->parent(), &parent);
    QVERIFY(leaf->objectName().isEmpty());
}

void tst_TreeElementsInitialisation::aNewElementHasNoChildren()
{
    const QJsonObject child{{"type", "int32"}};
    TreeNode node({{"type", "treenode"}, {"value", QJsonObject{{"a", child}}}}, nullptr);

    QCOMPARE(node.getNumberOfChilds(), 0);
    QVERIFY(node.getChildMap().isEmpty());

    node.addElement("a", Base::BaseClassSharedPointer(new Leaf(child, nullptr)));

    QCOMPARE(node.getNumberOfChilds(), 1);
    QCOMPARE(node.getChildMap().keys(), QStringList{"a"});
    QCOMPARE(&node.getChildMap(), &node.getChildMap());
}

void tst_TreeElementsInitialisation::theDataTypeMapIsTheOneOfTheVocabulary()
{
    const Opened element({}, nullptr);

    QCOMPARE(element.m_dataTypeMap,
             ConfigurationAndProcessDataDefinitions::getBasicDataTypeMapForProcessData());
}

void tst_TreeElementsInitialisation::everyKeyBecomesAProperty()
{
    LogCapture log;
    Leaf leaf({{"type", "string"},
               {"value", "text"},
               {"anything", QJsonObject{{"inner", 1.5}}},
               {"list", QJsonArray{1.0, "two"}},
               {"flag", true},
               {"number", 7.5},
               {"nothing", QJsonValue::Null}},
              nullptr);

    const Base::PropertyMap properties = leaf.getProperties();
    QCOMPARE(properties.size(), 7);
    QCOMPARE(properties.value("type"), QVariant("string"));
    QCOMPARE(properties.value("value"), QVariant("text"));
    QCOMPARE(properties.value("anything").userType(), int(QMetaType::QVariantMap));
    QCOMPARE(properties.value("anything").toMap(), (QVariantMap{{"inner", 1.5}}));
    QCOMPARE(properties.value("list").userType(), int(QMetaType::QVariantList));
    QCOMPARE(properties.value("list").toList(), (QVariantList{1.0, "two"}));
    QCOMPARE(properties.value("flag").userType(), int(QMetaType::Bool));
    QCOMPARE(properties.value("number").userType(), int(QMetaType::Double));
    QCOMPARE(properties.value("nothing").userType(), int(QMetaType::Nullptr));
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::anEmptyObjectGivesNoProperties()
{
    LogCapture log;
    Leaf leaf({}, nullptr);

    QVERIFY(leaf.getProperties().isEmpty());
    QVERIFY(!leaf.hasProperty("type"));
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::childrenOfATreeNodeAreNoProperty()
{
    LogCapture log;
    TreeNode node({{"type", "treenode"},
                   {"value", QJsonObject{{"a", QJsonObject{{"type", "int32"}}}}},
                   {"displayPosition", 3}},
                  nullptr);

    QVERIFY(!node.hasProperty("value"));
    QVERIFY(!node.getProperties().contains("value"));
    QCOMPARE(node.getProperties().size(), 2);
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::limitsOfATreeNodeAreKeptAsTheyAre()
{
    LogCapture log;
    TreeNode node({{"type", "treenode"}, {"minLimit", "low"}, {"maxLimit", QJsonValue::Null}},
                  nullptr);

    QCOMPARE(node.getProperties().value("minLimit"), QVariant("low"));
    QCOMPARE(node.getProperties().value("maxLimit").userType(), int(QMetaType::Nullptr));
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::valueAndLimitsTakeTheDataType_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QJsonValue>("json");
    QTest::addColumn<int>("metaType");
    QTest::addColumn<QVariant>("expected");

    const QString bigInt = QStringLiteral("-9223372036854775808");
    const QString bigUint = QStringLiteral("18446744073709551615");
    QTest::newRow("boolean") << "boolean" << QJsonValue(true) << 1 << QVariant(true);
    QTest::newRow("boolean from number") << "boolean" << QJsonValue(1) << 1 << QVariant(true);
    QTest::newRow("bit") << "bit" << QJsonValue(false) << 1 << QVariant(false);
    QTest::newRow("int8") << "int8" << QJsonValue(-5) << 2 << QVariant(-5);
    QTest::newRow("int16") << "int16" << QJsonValue(-300) << 2 << QVariant(-300);
    QTest::newRow("int32") << "int32" << QJsonValue(-70000) << 2 << QVariant(-70000);
    QTest::newRow("int32 from text") << "int32" << QJsonValue("12") << 2 << QVariant(12);
    QTest::newRow("uint8") << "uint8" << QJsonValue(200) << 3 << QVariant(200U);
    QTest::newRow("uint16") << "uint16" << QJsonValue(60000) << 3 << QVariant(60000U);
    QTest::newRow("uint32") << "uint32" << QJsonValue(4e9) << 3 << QVariant(4000000000U);
    QTest::newRow("int64") << "int64" << QJsonValue(bigInt) << 4
                           << QVariant(std::numeric_limits<qlonglong>::min());
    QTest::newRow("uint64") << "uint64" << QJsonValue(bigUint) << 5
                            << QVariant(std::numeric_limits<qulonglong>::max());
    QTest::newRow("double") << "double" << QJsonValue(0.1) << 6 << QVariant(0.1);
    QTest::newRow("string") << "string" << QJsonValue("a b") << 10 << QVariant("a b");
    QTest::newRow("string from number") << "string" << QJsonValue(5) << 10 << QVariant("5");
    QTest::newRow("float") << "float" << QJsonValue(1.5) << 38 << QVariant(1.5F);
    QTest::newRow("selector") << "selector" << QJsonValue(2) << 2 << QVariant(2);
}

void tst_TreeElementsInitialisation::valueAndLimitsTakeTheDataType()
{
    QFETCH(QString, type);
    QFETCH(QJsonValue, json);
    QFETCH(int, metaType);
    QFETCH(QVariant, expected);
    LogCapture log;

    Leaf leaf({{"type", type}, {"value", json}, {"minLimit", json}, {"maxLimit", json}}, nullptr);

    for (const char *key : {"value", "minLimit", "maxLimit"}) {
        QCOMPARE(leaf.getProperties().value(key).userType(), metaType);
        QCOMPARE(leaf.getProperties().value(key), expected);
        QVERIFY(!leaf.getProperties().value(key).isNull());
    }
    QCOMPARE(leaf.getProperties().value("type"), QVariant(type));
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::integersAreHeldAsTheToolkitConvertsThem()
{
    QRandomGenerator random(11);
    const qint64 least = std::numeric_limits<int>::min();
    const qint64 greatest = std::numeric_limits<int>::max();
    QList<QJsonValue> numbers{least - 1, least,        least + 1,        -1,   0,   greatest - 1,
                              greatest,  greatest + 1, 2 * greatest + 2, -0.0, 0.5, 2147483647.5,
                              1e300,     3.5e-323};
    for (int i = 0; i < 500; ++i) {
        numbers.append(static_cast<qint64>(random.generate64()) >> random.bounded(64));
    }
    for (const QJsonValue &number : numbers) {
        const QJsonObject json{{"type", "int32"}, {"value", number}};
        QVariant expected = json.value("value").toVariant();
        QVERIFY(expected.convert(QMetaType::Int));

        Leaf leaf(json, nullptr);

        const QVariant held = leaf.getProperties().value(QStringLiteral("value"));
        QCOMPARE(held.userType(), static_cast<int>(QMetaType::Int));
        QVERIFY2(held == expected, qPrintable(number.toVariant().toString()));
    }
}

void tst_TreeElementsInitialisation::otherKeysAreNotConverted()
{
    LogCapture log;
    Leaf leaf(
        {{"type", "int32"}, {"viewStart", 1.25}, {"viewEnd", "x"}, {"unit", QJsonValue::Null}},
        nullptr);

    QCOMPARE(leaf.getProperties().value("viewStart").userType(), int(QMetaType::Double));
    QCOMPARE(leaf.getProperties().value("viewEnd").userType(), int(QMetaType::QString));
    QCOMPARE(leaf.getProperties().value("unit").userType(), int(QMetaType::Nullptr));
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::anUnknownTypeConvertsNothing()
{
    LogCapture log;
    Leaf array({{"type", "array"}, {"value", QJsonArray{1.0, "b"}}, {"minLimit", "x"}}, nullptr);
    Leaf untyped({{"value", 2.5}, {"maxLimit", true}}, nullptr);
    Leaf unknown({{"type", "Int32"}, {"value", "abc"}}, nullptr);

    QCOMPARE(array.getValue().userType(), int(QMetaType::QVariantList));
    QCOMPARE(array.getValue().toList(), (QVariantList{1.0, "b"}));
    QCOMPARE(array.getProperty("minLimit"), QVariant("x"));
    QCOMPARE(untyped.getValue().userType(), int(QMetaType::Double));
    QCOMPARE(untyped.getProperty("maxLimit").userType(), int(QMetaType::Bool));
    QCOMPARE(unknown.getValue().userType(), int(QMetaType::QString));
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::aTypeThatIsNoTextCountsAsEmpty()
{
    LogCapture log;
    Leaf leaf({{"type", 2}, {"value", "abc"}, {"minLimit", QJsonValue::Null}}, nullptr);

    QCOMPARE(leaf.getProperty("type"), QVariant(2));
    QCOMPARE(leaf.getValue(), QVariant("abc"));
    QCOMPARE(leaf.getProperties().value("minLimit").userType(), int(QMetaType::Nullptr));
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::keysAreComparedWithTheirCase()
{
    LogCapture log;
    Leaf leaf({{"type", "int32"}, {"Value", "abc"}, {"minlimit", "abc"}, {"maxLimit ", "abc"}},
              nullptr);
    TreeNode node({{"type", "treenode"}, {"Value", "kept"}}, nullptr);

    QCOMPARE(leaf.getProperty("Value"), QVariant("abc"));
    QCOMPARE(leaf.getProperty("minlimit"), QVariant("abc"));
    QCOMPARE(leaf.getProperty("maxLimit "), QVariant("abc"));
    QCOMPARE(node.getProperty("Value"), QVariant("kept"));
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::anObjectAsValueOfALeafIsKeptAsAMap()
{
    LogCapture log;
    Leaf leaf({{"type", "record"}, {"value", QJsonObject{{"a", 1.0}}}}, nullptr);

    QCOMPARE(leaf.getValue().userType(), int(QMetaType::QVariantMap));
    QCOMPARE(leaf.getProperty("value/a"), QVariant(1.0));
    QCOMPARE(leaf.getNumberOfChilds(), 0);
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::jsonNullIsTheNoInputIndicatorOfTheType_data()
{
    QTest::addColumn<int>("metaType");
    QTest::addColumn<bool>("isNumber");

    QTest::newRow("int8") << 2 << true;
    QTest::newRow("int16") << 2 << true;
    QTest::newRow("int32") << 2 << true;
    QTest::newRow("int64") << 4 << true;
    QTest::newRow("uint8") << 3 << true;
    QTest::newRow("uint16") << 3 << true;
    QTest::newRow("uint32") << 3 << true;
    QTest::newRow("uint64") << 5 << true;
    QTest::newRow("float") << 38 << true;
    QTest::newRow("double") << 6 << true;
    QTest::newRow("selector") << 2 << false;
}

void tst_TreeElementsInitialisation::jsonNullIsTheNoInputIndicatorOfTheType()
{
    QFETCH(int, metaType);
    QFETCH(bool, isNumber);
    const QString type = QString::fromLatin1(QTest::currentDataTag());
    LogCapture log;

    const QJsonValue null(QJsonValue::Null);
    Leaf leaf({{"type", type}, {"value", null}, {"minLimit", null}, {"maxLimit", null}}, nullptr);

    for (const char *key : {"value", "minLimit", "maxLimit"}) {
        QVERIFY(leaf.hasProperty(key));
        QCOMPARE(leaf.getProperty(key).userType(), metaType);
        QVERIFY(leaf.getProperty(key).isNull());
    }
    QCOMPARE(leaf.isNumberNoInput(), isNumber);
    QCOMPARE(leaf.isSelectorNoInput(), !isNumber);
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::jsonNullOfAnUnknownTypeIsKept()
{
    LogCapture log;
    Leaf leaf({{"type", "array"}, {"value", QJsonValue::Null}}, nullptr);

    QCOMPARE(leaf.getValue().userType(), int(QMetaType::Nullptr));
    QVERIFY(!leaf.isNumberNoInput());
    QVERIFY(!leaf.isSelectorNoInput());
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::jsonNullInABooleanIsAWrongValue()
{
    LogCapture log;
    Leaf leaf({{"type", "boolean"}, {"value", QJsonValue::Null}}, nullptr);

    QVERIFY(leaf.getProperties().contains("value"));
    QVERIFY(!leaf.getProperties().value("value").isValid());
    COMPARE_LOG(log, warning("Wrong value type in config 1 QVariant(std::nullptr_t, (nullptr))"));
}

void tst_TreeElementsInitialisation::jsonNullInATextIsText()
{
    LogCapture log;
    Leaf leaf({{"type", "string"}, {"value", QJsonValue::Null}}, nullptr);

    QCOMPARE(leaf.getValue().userType(), int(QMetaType::QString));
    QVERIFY(leaf.getValue().toString().isEmpty());
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::aWrongValueIsKeptAsInvalidEntry()
{
    LogCapture log;
    Leaf leaf({{"type", "int32"}, {"value", "abc"}}, nullptr);

    COMPARE_LOG(log, warning("Wrong value type in config 2 QVariant(QString, \"abc\")"));
    QVERIFY(leaf.getProperties().contains("value"));
    QVERIFY(!leaf.getProperties().value("value").isValid());
    QVERIFY(!leaf.hasProperty("value"));
    QVERIFY(!leaf.isNumberNoInput());

    QCOMPARE(leaf.setProperty("value", 3), Base::SetValueChanged);

    QCOMPARE(leaf.getValue(), QVariant(3));
    QVERIFY(leaf.hasProperty("value"));
    COMPARE_LOG(log);
}

void tst_TreeElementsInitialisation::eachWrongEntryIsReportedInTheOrderOfKeys()
{
    LogCapture log;
    Leaf leaf({{"value", QJsonArray{1.5}},
               {"type", "float"},
               {"minLimit", QJsonObject{{"a", "b"}}},
               {"maxLimit", "high"}},
              nullptr);

    COMPARE_LOG(
        log, warning("Wrong value type in config 38 QVariant(QString, \"high\")"),
        warning("Wrong value type in config 38 QVariant(QVariantMap, "
                "QMap((\"a\", QVariant(QString, \"b\"))))"),
        warning("Wrong value type in config 38 QVariant(QVariantList, (QVariant(double, 1.5)))"));
    QCOMPARE(leaf.getProperties().size(), 4);
    for (const char *key : {"value", "minLimit", "maxLimit"}) {
        QVERIFY(leaf.getProperties().contains(key));
        QVERIFY(!leaf.hasProperty(key));
    }
}

void tst_TreeElementsInitialisation::initialisingAgainOverwritesAndKeepsTheRest()
{
    LogCapture log;
    Leaf leaf({{"type", "int32"}, {"value", 1}, {"unit", "mm"}}, nullptr);

    leaf.initPropertyMap({{"type", "string"}, {"value", 2}});

    QCOMPARE(leaf.getProperties(),
             (Base::PropertyMap{{"type", "string"}, {"value", "2"}, {"unit", "mm"}}));
    QCOMPARE(leaf.getValue().userType(), int(QMetaType::QString));
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_TreeElementsInitialisation)

#include "tst_TreeElementsInitialisation.moc"
