#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LeafSignals.h"
#include "support/LogCapture.h"
#include "support/RecordingLeaf.h"

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;
using WriteWithStatus = Base::SetValueStatus (*)(const QString &, const Root &, const QVariant &);
using Write = bool (*)(const QString &, const Root &, const QVariant &);

Root parse(const QByteArray &json, const QString &postfix = QStringLiteral("config.json"))
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(json, postfix);
}

Root parseDevice()
{
    return parse(R"({"type":"treenode","value":{
        "code":{"type":"string","value":"123","regularExpression":"\\d{3}"},
        "optional":{"type":"string","value":"1","regularExpression":"\\d*"},
        "name":{"type":"string","value":"probe"},
        "locked":{"type":"string","value":"a","readOnly":true},
        "limited":{"type":"int32","value":5,"minLimit":0,"maxLimit":10,"regularExpression":"x"},
        "mode":{"type":"selector","value":1,"texts":["off","on"],"regularExpression":"x"},
        "active":{"type":"boolean","value":true,"regularExpression":"x"},
        "table":{"type":"array","value":[[1,2],[3,4]],"arrayInformation":[[],[]],
                 "regularExpression":"x"},
        "note":{"type":"string","value":"t","info":{"by":"me","list":[4,5]}},
        "group":{"type":"treenode","value":{"low":{"type":"double","value":-2.5}}}}})");
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

void addBothForms()
{
    QTest::addColumn<WriteWithStatus>("write");
    QTest::addColumn<Write>("plainWrite");

    QTest::newRow("with signals") << WriteWithStatus(Tools::setConfigValueWithStatus)
                                  << Write(Tools::setConfigValue);
    QTest::newRow("without signals") << WriteWithStatus(Tools::setConfigValueNoSignalEmitWithStatus)
                                     << Write(Tools::setConfigValueNoSignalEmit);
}

} // namespace

Q_DECLARE_METATYPE(WriteWithStatus)
Q_DECLARE_METATYPE(Write)

class tst_CheckedWrites : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void statusNumbersAreFixed();
    void matchingTextIsStored_data() { addBothForms(); }
    void matchingTextIsStored();
    void storedValueAgainIsUnchangedAndASuccess_data() { addBothForms(); }
    void storedValueAgainIsUnchangedAndASuccess();
    void wholeTextMustMatch_data();
    void wholeTextMustMatch();
    void mismatchShowsTheText_data() { addBothForms(); }
    void mismatchShowsTheText();
    void mismatchOfAValueWithoutTextIsShort_data();
    void mismatchOfAValueWithoutTextIsShort();
    void invalidVariantIsMatchedAsTheEmptyText_data() { addBothForms(); }
    void invalidVariantIsMatchedAsTheEmptyText();
    void nothingButThePatternIsTested_data();
    void nothingButThePatternIsTested();
    void valueIsStoredExactlyAsGiven_data();
    void valueIsStoredExactlyAsGiven();
    void signalsFollowOnlyTheFormWithSignals();
    void nullRootIsReported_data() { addBothForms(); }
    void nullRootIsReported();
    void missingLeafIsSilent_data();
    void missingLeafIsSilent();
    void urlPastALeafIsReportedOnce_data() { addBothForms(); }
    void urlPastALeafIsReportedOnce();
    void processLeafIsNoTarget();
    void valuesAreWrittenThroughTheVirtualOperations();

private:
    Root m_root;
    QByteArray m_text;
};

void tst_CheckedWrites::init()
{
    m_root = parseDevice();
    m_text = frame(m_root);
}

void tst_CheckedWrites::cleanup()
{
    m_root.clear();
}

void tst_CheckedWrites::statusNumbersAreFixed()
{
    QCOMPARE(int(Base::SetValueChanged), 0);
    QCOMPARE(int(Base::SetValueUnchanged), 1);
    QCOMPARE(int(Base::SetValueTargetMissing), 2);
    QCOMPARE(int(Base::SetValueRegularExpressionMismatch), 3);
    QCOMPARE(int(Base::SetValuePropertyPathInvalid), 4);
}

void tst_CheckedWrites::matchingTextIsStored()
{
    QFETCH(WriteWithStatus, write);
    QFETCH(Write, plainWrite);
    LogCapture log;

    QCOMPARE(write("code", m_root, "456"), Base::SetValueChanged);
    QCOMPARE(Tools::extractConfigValue("code", m_root), QVariant("456"));

    QVERIFY(plainWrite("/code", m_root, "789"));
    QCOMPARE(Tools::extractConfigValue("code", m_root), QVariant("789"));
    COMPARE_LOG(log);
}

void tst_CheckedWrites::storedValueAgainIsUnchangedAndASuccess()
{
    QFETCH(WriteWithStatus, write);
    QFETCH(Write, plainWrite);
    const LeafSignals signalsOfLeaf(m_root, "code");
    LogCapture log;

    QCOMPARE(write("code", m_root, "123"), Base::SetValueUnchanged);
    QVERIFY(plainWrite("code", m_root, "123"));

    COMPARE_LOG(log);
    QVERIFY(signalsOfLeaf.isSilent());
    QCOMPARE(frame(m_root), m_text);
}

void tst_CheckedWrites::wholeTextMustMatch_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("empty") << "";
    QTest::newRow("too short") << "12";
    QTest::newRow("too long") << "1234";
    QTest::newRow("something before") << "a123";
    QTest::newRow("something behind") << "123 ";
    QTest::newRow("line end behind") << "123\n";
}

void tst_CheckedWrites::wholeTextMustMatch()
{
    QFETCH(QString, text);
    const LogCapture log;

    QVERIFY(!Tools::checkRegularExpression(m_root->getLeaf(QString("code")), text));
    QCOMPARE(Tools::setConfigValueWithStatus("code", m_root, text),
             Base::SetValueRegularExpressionMismatch);
}

void tst_CheckedWrites::mismatchShowsTheText()
{
    QFETCH(WriteWithStatus, write);
    QFETCH(Write, plainWrite);
    const LeafSignals signalsOfLeaf(m_root, "code");
    LogCapture log;

    QCOMPARE(write("code", m_root, "1234"), Base::SetValueRegularExpressionMismatch);
    COMPARE_LOG(log, warning(R"(Regular expression mismatch in configuration "code" with data )"
                             R"("1234")"));
    QVERIFY(!plainWrite("/code", m_root, 12.5));
    COMPARE_LOG(log, warning(R"(Regular expression mismatch in configuration "/code" with data )"
                             R"("12.5")"));
    QVERIFY(signalsOfLeaf.isSilent());
    QCOMPARE(frame(m_root), m_text);
}

void tst_CheckedWrites::mismatchOfAValueWithoutTextIsShort_data()
{
    QTest::addColumn<QVariant>("value");

    QTest::newRow("invalid") << QVariant();
    QTest::newRow("map") << QVariant(QVariantMap{{"a", "123"}});
    QTest::newRow("list") << QVariant(QVariantList{"123"});
    QTest::newRow("two texts") << QVariant(QStringList{"123", "123"});
}

void tst_CheckedWrites::mismatchOfAValueWithoutTextIsShort()
{
    QFETCH(QVariant, value);
    const LeafSignals signalsOfLeaf(m_root, "code");
    LogCapture log;

    QCOMPARE(Tools::setConfigValueWithStatus("code", m_root, value),
             Base::SetValueRegularExpressionMismatch);
    COMPARE_LOG(log, warning(R"(Regular expression mismatch in configuration "code")"));
    QCOMPARE(Tools::setConfigValueNoSignalEmitWithStatus("code", m_root, value),
             Base::SetValueRegularExpressionMismatch);
    COMPARE_LOG(log, warning(R"(Regular expression mismatch in configuration "code")"));
    QVERIFY(signalsOfLeaf.isSilent());
    QCOMPARE(frame(m_root), m_text);
}

void tst_CheckedWrites::invalidVariantIsMatchedAsTheEmptyText()
{
    QFETCH(WriteWithStatus, write);
    LogCapture log;

    QCOMPARE(write("optional", m_root, QVariant()), Base::SetValueChanged);

    COMPARE_LOG(log);
    QVERIFY(!Tools::extractConfigValue("optional", m_root).isValid());
}

void tst_CheckedWrites::nothingButThePatternIsTested_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("number above its limit") << "limited" << QVariant(11);
    QTest::newRow("number below its limit") << "limited" << QVariant(-1);
    QTest::newRow("text in a number") << "limited" << QVariant("warm");
    QTest::newRow("nothing entered") << "limited" << QVariant(QVariant::Int);
    QTest::newRow("read-only element") << "locked" << QVariant("b");
    QTest::newRow("selector beyond its list") << "mode" << QVariant(7);
    QTest::newRow("text of a selector") << "mode" << QVariant("off");
    QTest::newRow("boolean with a pattern") << "active" << QVariant(false);
    QTest::newRow("array with a pattern") << "table" << QVariant(QVariantList{1});
    QTest::newRow("text without a pattern") << "name" << QVariant("anything\n");
    QTest::newRow("number in a text") << "name" << QVariant(4);
    QTest::newRow("map in a number") << "group/low" << QVariant(QVariantMap{{"a", 1}});
}

void tst_CheckedWrites::nothingButThePatternIsTested()
{
    QFETCH(QString, url);
    QFETCH(QVariant, value);
    LogCapture log;
    for (const auto write :
         {Tools::setConfigValueWithStatus, Tools::setConfigValueNoSignalEmitWithStatus}) {
        m_root = parseDevice();

        QCOMPARE(write(url, m_root, value), Base::SetValueChanged);

        COMPARE_LOG(log);
        const QVariant stored = m_root->getLeafConfigurationData(url)->getValue();
        QCOMPARE(stored, value);
        QCOMPARE(stored.userType(), value.userType());
        QCOMPARE(stored.isNull(), value.isNull());
    }
}

void tst_CheckedWrites::valueIsStoredExactlyAsGiven_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("text of a number") << "limited" << QVariant("17");
    QTest::newRow("double for an integer") << "limited" << QVariant(17.25);
    QTest::newRow("byte array for a text") << "name" << QVariant(QByteArray("bytes"));
    QTest::newRow("unsigned for a selector") << "mode" << QVariant(0U);
    QTest::newRow("number that matches a pattern") << "code" << QVariant(777);
}

void tst_CheckedWrites::valueIsStoredExactlyAsGiven()
{
    QFETCH(QString, url);
    QFETCH(QVariant, value);

    QVERIFY(Tools::setConfigValue(url, m_root, value));

    QCOMPARE(Tools::extractConfigValue(url, m_root), value);
    QCOMPARE(Tools::extractConfigValue(url, m_root).userType(), value.userType());
}

void tst_CheckedWrites::signalsFollowOnlyTheFormWithSignals()
{
    const LeafSignals signalsOfLeaf(m_root, "code");

    QVERIFY(Tools::setConfigValueNoSignalEmit("code", m_root, "456"));
    QVERIFY(signalsOfLeaf.isSilent());

    QVERIFY(Tools::setConfigValue("code", m_root, "789"));
    QCOMPARE(signalsOfLeaf.counts(), QList<int>({1, 1, 1, 1}));
    QCOMPARE(signalsOfLeaf.arguments(), QVariantList({"value", "789"}));
}

void tst_CheckedWrites::nullRootIsReported()
{
    QFETCH(WriteWithStatus, write);
    QFETCH(Write, plainWrite);
    LogCapture log;

    QCOMPARE(write("code", {}, "456"), Base::SetValueTargetMissing);
    COMPARE_LOG(log, noRoot());
    QVERIFY(!plainWrite("table#0,0", {}, "456"));
    COMPARE_LOG(log, noRoot());
}

void tst_CheckedWrites::missingLeafIsSilent_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("nothing there") << "nowhere";
    QTest::newRow("nothing there, deeper") << "group/nowhere/low";
    QTest::newRow("tree node") << "group";
    QTest::newRow("root") << "";
    QTest::newRow("slashes") << "//";
}

void tst_CheckedWrites::missingLeafIsSilent()
{
    QFETCH(QString, url);
    LogCapture log;

    QCOMPARE(Tools::setConfigValueWithStatus(url, m_root, QVariant()), Base::SetValueTargetMissing);
    QCOMPARE(Tools::setConfigValueNoSignalEmitWithStatus(url, m_root, "1"),
             Base::SetValueTargetMissing);
    QCOMPARE(Tools::setPropertyWithStatus(url, "value", m_root, "1"), Base::SetValueTargetMissing);
    QVERIFY(!Tools::setConfigValue(url, m_root, "1"));
    QVERIFY(!Tools::setConfigValueNoSignalEmit(url, m_root, "1"));
    QVERIFY(!Tools::setProperty(url, "value", m_root, "1"));

    COMPARE_LOG(log);
    QCOMPARE(frame(m_root), m_text);
}

void tst_CheckedWrites::urlPastALeafIsReportedOnce()
{
    QFETCH(WriteWithStatus, write);
    LogCapture log;

    QCOMPARE(write("code/a/b", m_root, "456"), Base::SetValueTargetMissing);

    COMPARE_LOG(log, warning(R"(Wrong URL: "a/b")"));
    QCOMPARE(frame(m_root), m_text);
}

void tst_CheckedWrites::processLeafIsNoTarget()
{
    const Root process = parse(R"({"type":"treenode","value":{
        "code":{"type":"string","value":"1","regularExpression":"\\d"}}})",
                               "process.json");
    const QByteArray text = frame(process);
    LogCapture log;

    QCOMPARE(Tools::setConfigValueWithStatus("code", process, "x"), Base::SetValueTargetMissing);
    QCOMPARE(Tools::setConfigValueNoSignalEmitWithStatus("code", process, "2"),
             Base::SetValueTargetMissing);
    QCOMPARE(Tools::setPropertyWithStatus("code", "value", process, "2"),
             Base::SetValueTargetMissing);

    COMPARE_LOG(log);
    QCOMPARE(frame(process), text);
}

void tst_CheckedWrites::valuesAreWrittenThroughTheVirtualOperations()
{
    const auto root = QSharedPointer<ConfigurationAndProcessDataTreeNode>::create(QJsonObject(),
                                                                                  nullptr);
    const auto leaf = QSharedPointer<RecordingLeaf>::create(QJsonObject{{"value", 1}});
    root->addElement("leaf", leaf);

    QVERIFY(Tools::setConfigValue("leaf", root, 2));
    QVERIFY(leaf->takeCalls().contains("setProperty value"));
    QVERIFY(Tools::setConfigValueNoSignalEmit("leaf", root, 3));
    const QStringList quietCalls = leaf->takeCalls();
    QVERIFY(quietCalls.contains("setPropertyNoSignalEmit value"));
    QVERIFY(!quietCalls.contains("setProperty value"));
    QVERIFY(Tools::setProperty("leaf", "value", root, 4));
    QVERIFY(leaf->takeCalls().contains("setProperty value"));
}

QTEST_GUILESS_MAIN(tst_CheckedWrites)

#include "tst_CheckedWrites.moc"
