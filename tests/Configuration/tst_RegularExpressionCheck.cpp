#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"
#include "support/RecordingLeaf.h"

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

} // namespace

class tst_RegularExpressionCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void patternPasses_data();
    void patternPasses();
    void nullElementPassesThePattern();
    void brokenPatternFailsEveryValue_data();
    void brokenPatternFailsEveryValue();
    void patternIsReadThroughTheVirtualOperations();
};

void tst_RegularExpressionCheck::patternPasses_data()
{
    QTest::addColumn<QJsonObject>("json");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("passes");

    const auto row = [](const char *name, const QJsonValue &type, const QJsonValue &pattern,
                        const QVariant &value, bool passes) {
        QJsonObject json{{"type", type}};
        if (!pattern.isUndefined()) {
            json.insert("regularExpression", pattern);
        }
        QTest::newRow(name) << json << value << passes;
    };
    const QJsonValue missing(QJsonValue::Undefined);
    row("no pattern", "string", missing, "b", true);
    row("empty pattern", "string", "", "b", true);
    row("pattern that is an object", "string", QJsonObject{{"a", "b"}}, "c", true);
    row("pattern that is a list", "string", QJsonArray{"a"}, "c", true);
    row("pattern that is a number, met", "string", 12, "12", true);
    row("pattern that is a number, not met", "string", 12, "13", false);
    row("other letter case", "string", "abc", "ABC", false);
    row("same letter case", "string", "abc", "abc", true);
    row("choice that matches more when it goes on", "string", "a|ab", "ab", true);
    row("blank is text too", "string", "a", " a", false);
    row("number as text", "string", "\\d+", 17, true);
    row("boolean as text", "string", "true", true, true);
    row("nothing entered as text", "string", "a", QVariant(QVariant::String), false);
    row("nothing entered, empty allowed", "string", "a?", QVariant(QVariant::String), true);
    row("wildcard is no pattern form", "string", "*.json", "a.json", false);
    row("number type", "int32", "x", 1, true);
    row("selector", "selector", "x", 1, true);
    row("boolean", "boolean", "x", true, true);
    row("array", "array", "x", QVariantList{1}, true);
    row("unknown type", "record", "x", "y", true);
    row("type in capitals", "String", "x", "y", true);
    row("type that is no text", QJsonArray{"string"}, "x", "y", true);
}

void tst_RegularExpressionCheck::patternPasses()
{
    QFETCH(QJsonObject, json);
    QFETCH(QVariant, value);
    const Root element = QSharedPointer<ConfigurationDataValue>::create(json, nullptr);
    LogCapture log;

    QTEST(Tools::checkRegularExpression(element, value), "passes");

    COMPARE_LOG(log);
}

void tst_RegularExpressionCheck::nullElementPassesThePattern()
{
    LogCapture log;

    QVERIFY(Tools::checkRegularExpression({}, "anything"));
    QVERIFY(Tools::checkRegularExpression({}, QVariant()));

    COMPARE_LOG(log);
}

void tst_RegularExpressionCheck::brokenPatternFailsEveryValue_data()
{
    QTest::addColumn<QString>("pattern");

    QTest::newRow("open parenthesis") << "(";
    QTest::newRow("open class") << "[a";
    QTest::newRow("nothing to repeat") << "*";
    QTest::newRow("look-behind") << "(?<=a)b";
}

void tst_RegularExpressionCheck::brokenPatternFailsEveryValue()
{
    QFETCH(QString, pattern);
    const Root element = QSharedPointer<ConfigurationDataValue>::create(
        QJsonObject{{"type", "string"}, {"regularExpression", pattern}}, nullptr);

    for (const QVariant &value :
         {QVariant(), QVariant(""), QVariant("a"), QVariant("b"), QVariant(pattern)}) {
        LogCapture log;
        QVERIFY(!Tools::checkRegularExpression(element, value));
        COMPARE_LOG(log);
    }
}

void tst_RegularExpressionCheck::patternIsReadThroughTheVirtualOperations()
{
    const auto leaf = QSharedPointer<RecordingLeaf>::create(
        QJsonObject{{"type", "string"}, {"value", "1"}, {"regularExpression", "1"}});

    QVERIFY(Tools::checkRegularExpression(leaf, "1"));

    QCOMPARE(leaf->takeCalls(), QStringList({"getProperty type", "hasProperty regularExpression",
                                             "getProperty regularExpression"}));
}

QTEST_GUILESS_MAIN(tst_RegularExpressionCheck)

#include "tst_RegularExpressionCheck.moc"
