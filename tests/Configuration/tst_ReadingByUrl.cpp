#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QSignalSpy>

#include <limits>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Tools = ConfigurationAndProcessDataTools;

Base::BaseClassSharedPointer parse(const QByteArray &json, const QString &postfix)
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(json, postfix);
}

Base::BaseClassSharedPointer parseDevice()
{
    return parse(R"({"type":"treenode","labelTextId":"device","value":{
        "limits":{"type":"treenode","unit":"K","value":{
            "upper":{"type":"int32","value":80,"maxLimit":90,"info":{"by":"me","list":[4,5]}},
            "lower":{"type":"double","value":-2.5},
            "open":{"type":"int32","value":null},
            "zero":{"type":"int32","value":0}}},
        "mode":{"type":"selector","value":1,"texts":["off","on"]},
        "noMode":{"type":"selector","value":null},
        "name":{"type":"string","value":"probe"},
        "digits":{"type":"string","value":"12"},
        "noText":{"type":"string","value":""},
        "active":{"type":"boolean","value":true},
        "big":{"type":"uint32","value":4294967295},
        "record":{"type":"record","value":{"a":1,"A":"two","none":null}},
        "bare":{"type":"int32"},
        "table":{"type":"array","value":[[1,2],[3,4]]}}})",
                 "config.json");
}

LogLine noConfigurationRoot()
{
    return warning("Pointer to configuration root invalid!");
}

} // namespace

class tst_ReadingByUrl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void plainUrlGivesTheValueOfALeaf_data();
    void plainUrlGivesTheValueOfALeaf();
    void urlWithoutConfigurationLeafGivesNothing_data();
    void urlWithoutConfigurationLeafGivesNothing();
    void urlPastALeafGivesNothing();
    void processLeafIsNoConfigurationLeaf();
    void nullRootHasNoValue();

    void intIsStoredWithItsSuccess_data();
    void intIsStoredWithItsSuccess();
    void uintIsStoredWithItsSuccess_data();
    void uintIsStoredWithItsSuccess();
    void doubleIsStoredWithItsSuccess_data();
    void doubleIsStoredWithItsSuccess();
    void textIsFalseOnlyWhenItIsNull_data();
    void textIsFalseOnlyWhenItIsNull();
    void variantIsFalseWhenItIsNull_data();
    void variantIsFalseWhenItIsNull();
    void typedFormsWarnOnceForANullRoot();

    void mapEntryIsFound();
    void mapEntryMayBeNull();
    void hashIsNoMap();
    void missingMapEntryLeavesTheOutput_data();
    void missingMapEntryLeavesTheOutput();

    void noInputIsToldByUrl_data();
    void noInputIsToldByUrl();
    void elementOfAnotherTypeNeverLacksInput();
    void noInputOfNoElementIsReported();
    void noInputOfNullRootIsSilent();

private:
    Base::BaseClassSharedPointer m_root;
    Base::BaseClassSharedPointer m_none;
    QByteArray m_contentBefore;
};

void tst_ReadingByUrl::init()
{
    m_root = parseDevice();
    QVERIFY(!m_root.isNull());
    QVERIFY(ConfigurationAndProcessDataParser().frameToByteArray(m_root, m_contentBefore,
                                                                 QJsonDocument::Compact));
}

/// Reading leaves the tree as it was.
void tst_ReadingByUrl::cleanup()
{
    QByteArray content;
    QVERIFY(ConfigurationAndProcessDataParser().frameToByteArray(m_root, content,
                                                                 QJsonDocument::Compact));
    QCOMPARE(content, m_contentBefore);
}

void tst_ReadingByUrl::plainUrlGivesTheValueOfALeaf_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("number") << "limits/upper" << QVariant(80);
    QTest::newRow("leading slash") << "/limits/upper" << QVariant(80);
    QTest::newRow("double") << "limits/lower" << QVariant(-2.5);
    QTest::newRow("zero") << "limits/zero" << QVariant(0);
    QTest::newRow("no-input indicator") << "limits/open" << QVariant(QVariant::Int);
    QTest::newRow("selector") << "mode" << QVariant(1);
    QTest::newRow("text") << "name" << QVariant("probe");
    QTest::newRow("empty text") << "noText" << QVariant(QString(""));
    QTest::newRow("boolean") << "active" << QVariant(true);
    QTest::newRow("whole array") << "table"
                                 << QVariant(QVariantList{QVariantList{1, 2}, QVariantList{3, 4}});
}

void tst_ReadingByUrl::plainUrlGivesTheValueOfALeaf()
{
    QFETCH(QString, url);
    QFETCH(QVariant, value);
    LogCapture log;

    const QVariant found = Tools::extractConfigValue(url, m_root);

    QCOMPARE(found, value);
    QCOMPARE(found.userType(), value.userType());
    QCOMPARE(found.isNull(), value.isNull());
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::urlWithoutConfigurationLeafGivesNothing_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("missing") << "nothing";
    QTest::newRow("missing below a node") << "limits/nothing";
    QTest::newRow("tree node") << "limits";
    QTest::newRow("empty") << "";
    QTest::newRow("slash") << "/";
    QTest::newRow("leaf without a value") << "bare";
    QTest::newRow("other case") << "Name";
}

void tst_ReadingByUrl::urlWithoutConfigurationLeafGivesNothing()
{
    QFETCH(QString, url);
    LogCapture log;

    QVERIFY(!Tools::extractConfigValue(url, m_root).isValid());
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::urlPastALeafGivesNothing()
{
    LogCapture log;

    QVERIFY(!Tools::extractConfigValue("name/first/second", m_root).isValid());
    COMPARE_LOG(log, warning("Wrong URL: \"first/second\""));
}

void tst_ReadingByUrl::processLeafIsNoConfigurationLeaf()
{
    const auto process = parse(R"({"type":"treenode","value":{"a":{"type":"int32","value":1}}})",
                               "process.json");
    QVERIFY(!process.isNull());
    LogCapture log;

    QVERIFY(!Tools::extractConfigValue("a", process).isValid());
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::nullRootHasNoValue()
{
    LogCapture log;

    QVERIFY(!Tools::extractConfigValue("name", m_none).isValid());
    COMPARE_LOG(log, noConfigurationRoot());
}

void tst_ReadingByUrl::intIsStoredWithItsSuccess_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("stored");
    QTest::addColumn<bool>("result");

    QTest::newRow("number") << "limits/upper" << 80 << true;
    QTest::newRow("zero") << "limits/zero" << 0 << true;
    QTest::newRow("text with digits") << "digits" << 12 << true;
    QTest::newRow("boolean") << "active" << 1 << true;
    QTest::newRow("no-input indicator") << "limits/open" << 0 << true;
    QTest::newRow("text") << "name" << 0 << false;
    QTest::newRow("missing") << "nothing" << 0 << false;
    QTest::newRow("tree node") << "limits" << 0 << false;
    QTest::newRow("list") << "table" << 0 << false;
}

void tst_ReadingByUrl::intIsStoredWithItsSuccess()
{
    QFETCH(QString, url);
    QFETCH(int, stored);
    QFETCH(bool, result);
    int value = 77;
    LogCapture log;

    QCOMPARE(Tools::extractConfigValueInt(url, m_root, value), result);
    QCOMPARE(value, stored);
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::uintIsStoredWithItsSuccess_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<unsigned int>("stored");
    QTest::addColumn<bool>("result");

    QTest::newRow("largest") << "big" << std::numeric_limits<unsigned int>::max() << true;
    QTest::newRow("text with digits") << "digits" << 12U << true;
    QTest::newRow("text") << "name" << 0U << false;
    QTest::newRow("missing") << "nothing" << 0U << false;
}

void tst_ReadingByUrl::uintIsStoredWithItsSuccess()
{
    QFETCH(QString, url);
    QFETCH(unsigned int, stored);
    QFETCH(bool, result);
    unsigned int value = 77;
    LogCapture log;

    QCOMPARE(Tools::extractConfigValueUint(url, m_root, value), result);
    QCOMPARE(value, stored);
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::doubleIsStoredWithItsSuccess_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<double>("stored");
    QTest::addColumn<bool>("result");

    QTest::newRow("double") << "limits/lower" << -2.5 << true;
    QTest::newRow("integer") << "limits/upper" << 80.0 << true;
    QTest::newRow("text with digits") << "digits" << 12.0 << true;
    QTest::newRow("text") << "name" << 0.0 << false;
    QTest::newRow("missing") << "nothing" << 0.0 << false;
}

void tst_ReadingByUrl::doubleIsStoredWithItsSuccess()
{
    QFETCH(QString, url);
    QFETCH(double, stored);
    QFETCH(bool, result);
    double value = 77.0;
    LogCapture log;

    QCOMPARE(Tools::extractConfigValueDouble(url, m_root, value), result);
    QCOMPARE(value, stored);
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::textIsFalseOnlyWhenItIsNull_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<bool>("result");

    QTest::newRow("text") << "name"
                          << "probe" << true;
    QTest::newRow("empty text") << "noText"
                                << "" << true;
    QTest::newRow("number") << "limits/upper"
                            << "80" << true;
    QTest::newRow("boolean") << "active"
                             << "true" << true;
    QTest::newRow("missing") << "nothing" << QString() << false;
    QTest::newRow("list") << "table" << QString() << false;
}

void tst_ReadingByUrl::textIsFalseOnlyWhenItIsNull()
{
    QFETCH(QString, url);
    QFETCH(QString, stored);
    QFETCH(bool, result);
    QString value = "before";
    LogCapture log;

    QCOMPARE(Tools::extractConfigValueQString(url, m_root, value), result);
    QCOMPARE(value, stored);
    QCOMPARE(value.isNull(), !result);
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::variantIsFalseWhenItIsNull_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<bool>("result");

    QTest::newRow("number") << "limits/upper" << QVariant(80) << true;
    QTest::newRow("zero") << "limits/zero" << QVariant(0) << true;
    QTest::newRow("empty text") << "noText" << QVariant(QString("")) << true;
    QTest::newRow("number without input") << "limits/open" << QVariant(QVariant::Int) << false;
    QTest::newRow("selector without input") << "noMode" << QVariant(QVariant::Int) << false;
    QTest::newRow("missing") << "nothing" << QVariant() << false;
}

void tst_ReadingByUrl::variantIsFalseWhenItIsNull()
{
    QFETCH(QString, url);
    QFETCH(QVariant, stored);
    QFETCH(bool, result);
    QVariant value = "before";
    LogCapture log;

    QCOMPARE(Tools::extractConfigValueQVariant(url, m_root, value), result);
    QCOMPARE(value.userType(), stored.userType());
    QCOMPARE(value.isValid(), stored.isValid());
    QCOMPARE(value.isNull(), stored.isNull());
    QCOMPARE(value, stored);
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::typedFormsWarnOnceForANullRoot()
{
    int intValue = 7;
    unsigned int uintValue = 7;
    double doubleValue = 7;
    QString text = "before";
    QVariant variant = 7;
    QVariant entry = 7;
    LogCapture log;

    QVERIFY(!Tools::extractConfigValueInt("name", m_none, intValue));
    COMPARE_LOG(log, noConfigurationRoot());
    QVERIFY(!Tools::extractConfigValueUint("name", m_none, uintValue));
    COMPARE_LOG(log, noConfigurationRoot());
    QVERIFY(!Tools::extractConfigValueDouble("name", m_none, doubleValue));
    COMPARE_LOG(log, noConfigurationRoot());
    QVERIFY(!Tools::extractConfigValueQString("name", m_none, text));
    COMPARE_LOG(log, noConfigurationRoot());
    QVERIFY(!Tools::extractConfigValueQVariant("name", m_none, variant));
    COMPARE_LOG(log, noConfigurationRoot());
    QVERIFY(!Tools::extractConfigValueFromMap("name", "key", m_none, entry));
    COMPARE_LOG(log, noConfigurationRoot());

    QCOMPARE(intValue, 0);
    QCOMPARE(uintValue, 0U);
    QCOMPARE(doubleValue, 0.0);
    QVERIFY(text.isNull());
    QVERIFY(!variant.isValid());
    QCOMPARE(entry, QVariant(7));
}

void tst_ReadingByUrl::mapEntryIsFound()
{
    QVariant value = "before";
    LogCapture log;

    QVERIFY(Tools::extractConfigValueFromMap("record", "a", m_root, value));
    QCOMPARE(value, QVariant(1));
    QVERIFY(Tools::extractConfigValueFromMap("record", "A", m_root, value));
    QCOMPARE(value, QVariant("two"));
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::mapEntryMayBeNull()
{
    QVariant value = "before";

    QVERIFY(Tools::extractConfigValueFromMap("record", "none", m_root, value));
    QVERIFY(value.isNull());
}

void tst_ReadingByUrl::hashIsNoMap()
{
    const auto root = parse(
        R"({"type":"treenode","value":{"record":{"type":"record","value":{"a":1}}}})",
        "config.json");
    QVERIFY(!root.isNull());
    QVariant value = "before";

    const auto leaf = root->getLeafConfigurationData("record");
    QCOMPARE(leaf->setValue(QVariantHash{{"a", 2}}), Base::SetValueChanged);

    QVERIFY(!Tools::extractConfigValueFromMap("record", "a", root, value));
    QCOMPARE(value, QVariant("before"));
}

void tst_ReadingByUrl::missingMapEntryLeavesTheOutput_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("key");

    QTest::newRow("missing key") << "record"
                                 << "b";
    QTest::newRow("empty key") << "record"
                               << "";
    QTest::newRow("key in other case") << "record"
                                       << "NONE";
    QTest::newRow("value that is no map") << "name"
                                          << "a";
    QTest::newRow("list") << "table"
                          << "0";
    QTest::newRow("missing element") << "nothing"
                                     << "a";
}

void tst_ReadingByUrl::missingMapEntryLeavesTheOutput()
{
    QFETCH(QString, url);
    QFETCH(QString, key);
    QVariant value = "before";
    LogCapture log;

    QVERIFY(!Tools::extractConfigValueFromMap(url, key, m_root, value));
    QCOMPARE(value, QVariant("before"));
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::noInputIsToldByUrl_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("isNoInput");

    QTest::newRow("number without input") << "limits/open" << true;
    QTest::newRow("selector without input") << "noMode" << true;
    QTest::newRow("number") << "limits/upper" << false;
    QTest::newRow("zero") << "limits/zero" << false;
    QTest::newRow("selector") << "mode" << false;
    QTest::newRow("number without a value") << "bare" << false;
    QTest::newRow("tree node") << "limits" << false;
    QTest::newRow("text") << "name" << false;
}

void tst_ReadingByUrl::noInputIsToldByUrl()
{
    QFETCH(QString, url);
    QFETCH(bool, isNoInput);
    LogCapture log;

    QCOMPARE(Tools::isNoInputValueIndicatorSet(url, m_root), isNoInput);
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::elementOfAnotherTypeNeverLacksInput()
{
    const auto root = parse(R"({"type":"treenode","value":{
        "text":{"type":"string","value":"x"},"switch":{"type":"boolean","value":true}}})",
                            "config.json");
    QVERIFY(!root.isNull());
    root->getLeaf("text")->setProperty("value", QVariant(QVariant::String));
    root->getLeaf("switch")->setProperty("value", QVariant(QVariant::Bool));
    QVERIFY(Tools::extractConfigValue("text", root).isNull());
    LogCapture log;

    QVERIFY(!Tools::isNoInputValueIndicatorSet("text", root));
    QVERIFY(!Tools::isNoInputValueIndicatorSet("switch", root));
    COMPARE_LOG(log);
}

void tst_ReadingByUrl::noInputOfNoElementIsReported()
{
    LogCapture log;

    QVERIFY(!Tools::isNoInputValueIndicatorSet("limits/nothing", m_root));
    COMPARE_LOG(log, warning("Invalid url given \"limits/nothing\""));
}

void tst_ReadingByUrl::noInputOfNullRootIsSilent()
{
    LogCapture log;

    QVERIFY(!Tools::isNoInputValueIndicatorSet("limits/open", m_none));
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_ReadingByUrl)
#include "tst_ReadingByUrl.moc"
