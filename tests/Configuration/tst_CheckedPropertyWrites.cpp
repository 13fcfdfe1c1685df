#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LeafSignals.h"
#include "support/LogCapture.h"

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

Root parseDevice()
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(
        R"({"type":"treenode","value":{
            "code":{"type":"string","value":"123","regularExpression":"\\d{3}"},
            "limited":{"type":"int32","value":5,"maxLimit":10},
            "table":{"type":"array","value":[[1,2],[3,4]],"arrayInformation":[[],[]]},
            "note":{"type":"string","value":"t","info":{"by":"me","list":[4,5]}},
            "group":{"type":"treenode","value":{"low":{"type":"double","value":-2.5}}}}})",
        "config.json");
}

QByteArray frame(const Root &root)
{
    QByteArray text;
    ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact);
    return text;
}

LogLine noRoot()
{
    return warning("Pointer to configuration root invalid!");
}

} // namespace

class tst_CheckedPropertyWrites : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void propertyIsStoredWithItsSignals();
    void nestedPropertyIsStored();
    void propertyWriteOfTheValueIgnoresThePattern();
    void refusedPropertyLeavesTheTree_data();
    void refusedPropertyLeavesTheTree();
    void storedPropertyAgainIsASuccess();
    void nullRootHasNoPropertyToWrite();
    void propertyWriteReachesConfigurationLeavesOnly();
    void propertyWriteKnowsNoCells();

private:
    Root m_root;
    QByteArray m_text;
};

void tst_CheckedPropertyWrites::init()
{
    m_root = parseDevice();
    m_text = frame(m_root);
}

void tst_CheckedPropertyWrites::cleanup()
{
    m_root.clear();
}

void tst_CheckedPropertyWrites::propertyIsStoredWithItsSignals()
{
    const LeafSignals signalsOfLeaf(m_root, "limited");
    LogCapture log;

    QCOMPARE(Tools::setPropertyWithStatus("limited", "maxLimit", m_root, 99),
             Base::SetValueChanged);

    COMPARE_LOG(log);
    QCOMPARE(Tools::extractProperty("limited", "maxLimit", m_root), QVariant(99));
    QCOMPARE(signalsOfLeaf.counts(), QList<int>({1, 1, 0, 1}));
    QCOMPARE(signalsOfLeaf.arguments(), QVariantList({"maxLimit", 99}));
}

void tst_CheckedPropertyWrites::nestedPropertyIsStored()
{
    const LeafSignals signalsOfLeaf(m_root, "note");
    LogCapture log;

    QVERIFY(Tools::setProperty("note", "info/list[1]", m_root, 6));

    COMPARE_LOG(log);
    QCOMPARE(Tools::extractProperty("note", "info/list", m_root), QVariant(QVariantList{4, 6}));
    QCOMPARE(Tools::extractProperty("note", "info/by", m_root), QVariant("me"));
    QCOMPARE(signalsOfLeaf.counts(), QList<int>({1, 1, 0, 1}));
}

void tst_CheckedPropertyWrites::propertyWriteOfTheValueIgnoresThePattern()
{
    const LeafSignals signalsOfLeaf(m_root, "code");
    LogCapture log;

    QCOMPARE(Tools::setPropertyWithStatus("code", "value", m_root, "no digits"),
             Base::SetValueChanged);

    COMPARE_LOG(log);
    QCOMPARE(Tools::extractConfigValue("code", m_root), QVariant("no digits"));
    QCOMPARE(signalsOfLeaf.counts(), QList<int>({1, 1, 1, 1}));
}

void tst_CheckedPropertyWrites::refusedPropertyLeavesTheTree_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");

    QTest::newRow("empty key") << "" << 4 << "Key is empty";
    QTest::newRow("missing key") << "none" << 4 << "Key not found \"none\"";
    QTest::newRow("missing key before a piece") << "none/by" << 4 << "Key not found \"none\"";
    QTest::newRow("missing nested key") << "info/none" << 2 << "Key not found \"none\"";
    QTest::newRow("trailing slash") << "info/" << 2 << "Key not found \"\"";
    QTest::newRow("value that is no map") << "type/by" << 2 << "Propterty value is no map. \"by\"";
    QTest::newRow("index on no list") << "info/by[0]" << 4 << "";
    QTest::newRow("index too large") << "info/list[2]" << 4 << "The dimension is not correct: 2";
    QTest::newRow("index that is no number")
        << "info/list[99999999999]" << 4 << "Can not convert Instanz to a number: \"99999999999\"";
}

void tst_CheckedPropertyWrites::refusedPropertyLeavesTheTree()
{
    QFETCH(QString, property);
    QFETCH(int, status);
    QFETCH(QString, message);
    const LeafSignals signalsOfLeaf(m_root, "note");
    LogCapture log;

    QCOMPARE(int(Tools::setPropertyWithStatus("note", property, m_root, "new")), status);

    QCOMPARE(log.take(), message.isEmpty() ? QList<LogLine>() : QList<LogLine>{warning(message)});
    QVERIFY(!Tools::setProperty("note", property, m_root, "new"));
    QVERIFY(signalsOfLeaf.isSilent());
    QCOMPARE(frame(m_root), m_text);
}

void tst_CheckedPropertyWrites::storedPropertyAgainIsASuccess()
{
    const LeafSignals signalsOfLeaf(m_root, "note");

    QCOMPARE(Tools::setPropertyWithStatus("note", "info/by", m_root, "me"),
             Base::SetValueUnchanged);
    QVERIFY(Tools::setProperty("note", "info/by", m_root, "me"));

    QVERIFY(signalsOfLeaf.isSilent());
    QCOMPARE(frame(m_root), m_text);
}

void tst_CheckedPropertyWrites::nullRootHasNoPropertyToWrite()
{
    LogCapture log;

    QCOMPARE(Tools::setPropertyWithStatus("code", "value", {}, "1"), Base::SetValueTargetMissing);
    COMPARE_LOG(log, noRoot());
    QVERIFY(!Tools::setProperty("code", "value", {}, "1"));
    COMPARE_LOG(log, noRoot());
}

void tst_CheckedPropertyWrites::propertyWriteReachesConfigurationLeavesOnly()
{
    m_root->getLeaf(QString("group"))->addProperty("unit", "K");
    m_text = frame(m_root);
    LogCapture log;

    QCOMPARE(Tools::setPropertyWithStatus("group", "unit", m_root, "C"),
             Base::SetValueTargetMissing);

    COMPARE_LOG(log);
    QCOMPARE(Tools::extractProperty("group", "unit", m_root), QVariant("K"));
    QCOMPARE(frame(m_root), m_text);
}

void tst_CheckedPropertyWrites::propertyWriteKnowsNoCells()
{
    LogCapture log;

    QCOMPARE(Tools::setPropertyWithStatus("table#0,0", "value", m_root, 9),
             Base::SetValueTargetMissing);

    COMPARE_LOG(log);
    QCOMPARE(frame(m_root), m_text);
}

QTEST_GUILESS_MAIN(tst_CheckedPropertyWrites)

#include "tst_CheckedPropertyWrites.moc"
