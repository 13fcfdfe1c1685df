#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using Leaf = ConfigurationDataValue;

namespace {

const QVariant anyNull = QVariant::fromValue(nullptr);

/// Notes the keys that reach the virtual addProperty().
class AddRecorder : public Base
{
public:
    using Base::Base;

    void addProperty(const QString &key, const QVariant &value) override
    {
        m_keys.append(key);
        Base::addProperty(key, value);
    }

    QStringList m_keys;
};

/// Takes each message by removing the unit of an element.
class UnitRemover
{
public:
    explicit UnitRemover(Base &element)
    {
        sm_element = &element;
        m_former = qInstallMessageHandler(removeUnit);
    }
    ~UnitRemover() { qInstallMessageHandler(m_former); }
    Q_DISABLE_COPY(UnitRemover)

    int count() const { return sm_count; }

private:
    static void removeUnit(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                           const QString & /*text*/)
    {
        ++sm_count;
        sm_element->removeProperties({"unit"});
    }

    static Base *sm_element;
    static int sm_count;
    QtMessageHandler m_former;
};

Base *UnitRemover::sm_element = nullptr;
int UnitRemover::sm_count = 0;

/// Answers every property with one text.
class Pretender : public Base
{
public:
    explicit Pretender(const QVariant &answer) : Base(QJsonObject(), nullptr), m_answer(answer) { }

    QVariant getProperty(const QString &key) const override
    {
        return key == QLatin1String("type") ? QVariant(QStringLiteral("int32")) : m_answer;
    }

private:
    QVariant m_answer;
};

} // namespace

class tst_TreeElementsProperties : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aKeyWithASlashIsStoredButNoPathReachesIt();
    void aPropertyHeldInvalidCountsAsAbsent();
    void addedPropertyIsThereWithoutMessage();
    void addingAPresentKeyOverwritesAndWarns();
    void addingOverAnInvalidEntryWarnsToo();
    void addingAddsWhatWhoeverTookTheMessageRemoved();
    void addingTakesTheKeyLiterally();
    void addPropertiesAddsEachByTheVirtualOperation();
    void addPropertiesOfNothingAddsNothing();
    void removingTakesTheKeysLiterally();
    void removingAMissingKeyIsSilent();
    void theCopyOfThePropertiesIsIndependent();

    void noInputNeedsANumberOrSelectorAndANullOfAType_data();
    void noInputNeedsANumberOrSelectorAndANullOfAType();
    void numberQueriesFollowTypeAndValue_data();
    void numberQueriesFollowTypeAndValue();
    void numberNoInputAsksTheVirtualProperty();
};

void tst_TreeElementsProperties::aKeyWithASlashIsStoredButNoPathReachesIt()
{
    LogCapture log;
    Leaf leaf({{"a/b", 1}, {"c[0]", 2}}, nullptr);
    leaf.addProperty("d/e", 3);

    QCOMPARE(leaf.getProperties().value("a/b"), QVariant(1.0));
    QCOMPARE(leaf.getProperties().value("c[0]"), QVariant(2.0));
    QCOMPARE(leaf.getProperties().value("d/e"), QVariant(3));
    for (const char *key : {"a/b", "c[0]", "d/e"}) {
        QVERIFY(!leaf.getProperty(key).isValid());
        QVERIFY(!leaf.hasProperty(key));
    }
    COMPARE_LOG(log);
}

void tst_TreeElementsProperties::aPropertyHeldInvalidCountsAsAbsent()
{
    Leaf leaf({}, nullptr);
    leaf.addProperty("gone", QVariant());
    leaf.addProperty("empty", QVariant(QVariant::Int));

    QVERIFY(leaf.getProperties().contains("gone"));
    QVERIFY(!leaf.hasProperty("gone"));
    QVERIFY(leaf.hasProperty("empty"));
}

void tst_TreeElementsProperties::addedPropertyIsThereWithoutMessage()
{
    LogCapture log;
    Leaf leaf({{"type", "int32"}}, nullptr);

    leaf.addProperty("value", "not converted");

    QCOMPARE(leaf.getProperty("value"), QVariant("not converted"));
    QCOMPARE(leaf.getProperties().size(), 2);
    COMPARE_LOG(log);
}

void tst_TreeElementsProperties::addingAPresentKeyOverwritesAndWarns()
{
    LogCapture log;
    Leaf leaf({{"unit", "mm"}}, nullptr);

    leaf.addProperty("unit", 5);

    QCOMPARE(leaf.getProperties(), (Base::PropertyMap{{"unit", 5}}));
    COMPARE_LOG(log, warning("\"PropertyMap already contains key:\" \"unit\" \"!\""));
}

void tst_TreeElementsProperties::addingOverAnInvalidEntryWarnsToo()
{
    LogCapture log;
    Leaf leaf({}, nullptr);
    leaf.addProperty("unit", QVariant());

    leaf.addProperty("unit", QVariant());

    COMPARE_LOG(log, warning("\"PropertyMap already contains key:\" \"unit\" \"!\""));
}

void tst_TreeElementsProperties::addingAddsWhatWhoeverTookTheMessageRemoved()
{
    Leaf leaf({{"unit", "mm"}, {"type", "int32"}}, nullptr);
    {
        const UnitRemover remover(leaf);
        leaf.addProperty("unit", "bar");
        QCOMPARE(remover.count(), 1);
    }

    QCOMPARE(leaf.getProperties(), (Base::PropertyMap{{"unit", "bar"}, {"type", "int32"}}));
}

void tst_TreeElementsProperties::addingTakesTheKeyLiterally()
{
    LogCapture log;
    Leaf leaf({{"a", QJsonObject{{"b", 1.0}}}, {"list", QJsonArray{1.0}}}, nullptr);

    leaf.addProperty("a/b", 2);
    leaf.addProperty("list[0]", 3);
    leaf.addProperty("", 4);

    QCOMPARE(leaf.getProperties().value("a/b"), QVariant(2));
    QCOMPARE(leaf.getProperties().value("list[0]"), QVariant(3));
    QCOMPARE(leaf.getProperties().value(""), QVariant(4));
    QCOMPARE(leaf.getProperty("a/b"), QVariant(1.0));
    QCOMPARE(leaf.getProperty("list[0]"), QVariant(1.0));
    COMPARE_LOG(log);
}

void tst_TreeElementsProperties::addPropertiesAddsEachByTheVirtualOperation()
{
    LogCapture log;
    const Base::PropertyMap added{{"a", 1}, {"b", 2}, {"c", 3}, {"unit", "bar"}};
    AddRecorder element({{"unit", "mm"}, {"type", "int32"}}, nullptr);

    element.addProperties(added);

    QCOMPARE(element.m_keys, QStringList(added.keys()));
    QCOMPARE(element.getProperties(),
             (Base::PropertyMap{{"a", 1}, {"b", 2}, {"c", 3}, {"unit", "bar"}, {"type", "int32"}}));
    COMPARE_LOG(log, warning("\"PropertyMap already contains key:\" \"unit\" \"!\""));
}

void tst_TreeElementsProperties::addPropertiesOfNothingAddsNothing()
{
    LogCapture log;
    AddRecorder element({{"unit", "mm"}}, nullptr);

    element.addProperties({});

    QVERIFY(element.m_keys.isEmpty());
    QCOMPARE(element.getProperties(), (Base::PropertyMap{{"unit", "mm"}}));
    COMPARE_LOG(log);
}

void tst_TreeElementsProperties::removingTakesTheKeysLiterally()
{
    LogCapture log;
    Leaf leaf({{"a", QJsonObject{{"b", 1.0}}}, {"a/b", 2}, {"list", QJsonArray{1.0}}, {"c", 3}},
              nullptr);

    leaf.removeProperties({"a/b", "list[0]", "c"});

    QCOMPARE(leaf.getProperties().size(), 2);
    QCOMPARE(leaf.getProperty("a/b"), QVariant(1.0));
    QCOMPARE(leaf.getProperty("list[0]"), QVariant(1.0));
    COMPARE_LOG(log);
}

void tst_TreeElementsProperties::removingAMissingKeyIsSilent()
{
    LogCapture log;
    Leaf leaf({{"unit", "mm"}}, nullptr);

    leaf.removeProperties({"Unit", "", "other"});
    leaf.removeProperties({});

    QCOMPARE(leaf.getProperties(), (Base::PropertyMap{{"unit", "mm"}}));
    COMPARE_LOG(log);
}

void tst_TreeElementsProperties::theCopyOfThePropertiesIsIndependent()
{
    Leaf leaf({{"unit", "mm"}}, nullptr);

    Base::PropertyMap copy = leaf.getProperties();
    copy.insert("unit", "bar");
    copy.insert("more", 1);

    QCOMPARE(leaf.getProperties(), (Base::PropertyMap{{"unit", "mm"}}));

    copy = leaf.getProperties();
    leaf.setProperty("unit", "K");

    QCOMPARE(copy, (Base::PropertyMap{{"unit", "mm"}}));
}

void tst_TreeElementsProperties::noInputNeedsANumberOrSelectorAndANullOfAType_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("expected");

    const QVariant nullInt(QVariant::Int);
    QTest::newRow("number, null") << "int32" << nullInt << true;
    QTest::newRow("number, null of another type") << "double" << QVariant(QVariant::String) << true;
    QTest::newRow("number, JSON null") << "uint8" << anyNull << true;
    QTest::newRow("selector, null") << "selector" << nullInt << true;
    QTest::newRow("number, zero") << "int32" << QVariant(0) << false;
    QTest::newRow("number, invalid") << "int32" << QVariant() << false;
    QTest::newRow("selector, zero") << "selector" << QVariant(0) << false;
    QTest::newRow("text, null") << "string" << QVariant(QVariant::String) << false;
    QTest::newRow("boolean, null") << "boolean" << QVariant(QVariant::Bool) << false;
    QTest::newRow("array, null") << "array" << anyNull << false;
    QTest::newRow("unknown, null") << "Int32" << nullInt << false;
    QTest::newRow("no type, null") << "" << nullInt << false;
}

void tst_TreeElementsProperties::noInputNeedsANumberOrSelectorAndANullOfAType()
{
    QFETCH(QString, type);
    QFETCH(QVariant, value);
    const Leaf leaf({{"type", "string"}}, nullptr);

    QTEST(leaf.isNoInputValueIndicatorSet(type, value), "expected");
}

void tst_TreeElementsProperties::numberQueriesFollowTypeAndValue_data()
{
    QTest::addColumn<QJsonObject>("json");
    QTest::addColumn<bool>("isNumber");
    QTest::addColumn<bool>("isNumberNoInput");
    QTest::addColumn<bool>("isSelectorNoInput");

    const QJsonValue null(QJsonValue::Null);
    QTest::newRow("nothing") << QJsonObject() << false << false << false;
    QTest::newRow("no type") << QJsonObject{{"value", null}} << false << false << false;
    QTest::newRow("number without value")
        << QJsonObject{{"type", "int32"}} << true << false << false;
    QTest::newRow("number zero") << QJsonObject{{"type", "double"}, {"value", 0}} << true << false
                                 << false;
    QTest::newRow("number null") << QJsonObject{{"type", "double"}, {"value", null}} << true << true
                                 << false;
    QTest::newRow("selector zero")
        << QJsonObject{{"type", "selector"}, {"value", 0}} << false << false << false;
    QTest::newRow("selector null")
        << QJsonObject{{"type", "selector"}, {"value", null}} << false << false << true;
    QTest::newRow("text null") << QJsonObject{{"type", "string"}, {"value", null}} << false << false
                               << false;
    QTest::newRow("number, null limit")
        << QJsonObject{{"type", "int8"}, {"value", 1}, {"minLimit", null}} << true << false
        << false;
}

void tst_TreeElementsProperties::numberQueriesFollowTypeAndValue()
{
    QFETCH(QJsonObject, json);
    const Leaf leaf(json, nullptr);

    QTEST(leaf.isNumberType(), "isNumber");
    QTEST(leaf.isNumberNoInput(), "isNumberNoInput");
    QTEST(leaf.isSelectorNoInput(), "isSelectorNoInput");
}

void tst_TreeElementsProperties::numberNoInputAsksTheVirtualProperty()
{
    const Pretender empty{QVariant(QVariant::Int)};
    const Pretender filled{QVariant(0)};

    QVERIFY(empty.isNumberType());
    QVERIFY(empty.isNumberNoInput());
    QVERIFY(filled.isNumberType());
    QVERIFY(!filled.isNumberNoInput());
}

QTEST_GUILESS_MAIN(tst_TreeElementsProperties)

#include "tst_TreeElementsProperties.moc"
