#include "live/ConsistentRead.h"
#include "text/CountText.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Suggestion.h"
#include "text/Table.h"
#include "values/StateName.h"
#include "values/ValueText.h"

#include <QtTest>

#include <limits>

using namespace ProcessDataDefinitions;

namespace {

/// Stands for a manager whose buffer is overtaken by writers a number of times.
class OvertakenManager
{
public:
    explicit OvertakenManager(int timesOvertaken) : m_timesOvertaken(timesOvertaken) { }

    bool lockReadBuffer() { return true; }
    unsigned char *getPointerReadBuffer() { return isLockable ? &m_byte : nullptr; }
    bool unlockReadBuffer(bool &repeat)
    {
        ++unlocks;
        repeat = m_timesOvertaken-- > 0;
        return isLockable;
    }

    bool isLockable = true;
    int unlocks = 0;

private:
    int m_timesOvertaken;
    unsigned char m_byte = 0;
};

ProcessValue valid(const QVariant &content)
{
    return {content, PROCESS_VALUE_ERROR_TYPE_VALID};
}

} // namespace

/// The tool's parts that need no region.
class tst_ToolParts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readingStopsAtTheFirstConsistentSet();
    void readingRepeatsWhatWasOvertaken();
    void readingGivesUpAfterElevenAttempts();
    void readingWithoutALockReadsNothing();
    void valuesKeepAllTheirDigits_data();
    void valuesKeepAllTheirDigits();
    void erroneousValuesHaveNoText();
    void jsonKeepsOrderAndEscapes();
    void stateNamesReadBack();
    void aNumberThatIsNoStateIsNamedByItself();
    void suggestionsNeedLikeness_data();
    void suggestionsNeedLikeness();
    void oneIsNotSeveral();
    void tableAlignsAndKeepsItsWidths();
    void nothingInACellMovesTheCursor();
};

void tst_ToolParts::readingStopsAtTheFirstConsistentSet()
{
    OvertakenManager manager(0);
    int reads = 0;

    QCOMPARE(readConsistently(manager, [&reads] { ++reads; }), ReadOutcome::Consistent);
    QCOMPARE(reads, 1);
    QCOMPARE(manager.unlocks, 1);
}

void tst_ToolParts::readingRepeatsWhatWasOvertaken()
{
    OvertakenManager manager(10);
    int reads = 0;

    QCOMPARE(readConsistently(manager, [&reads] { ++reads; }), ReadOutcome::Consistent);
    QCOMPARE(reads, 11);
}

void tst_ToolParts::readingGivesUpAfterElevenAttempts()
{
    OvertakenManager manager(11);
    int reads = 0;

    QCOMPARE(readConsistently(manager, [&reads] { ++reads; }), ReadOutcome::Overtaken);
    QCOMPARE(reads, 11);
    QCOMPARE(manager.unlocks, 11);
}

void tst_ToolParts::readingWithoutALockReadsNothing()
{
    OvertakenManager manager(0);
    manager.isLockable = false;
    int reads = 0;

    QCOMPARE(readConsistently(manager, [&reads] { ++reads; }), ReadOutcome::NotLocked);
    QCOMPARE(reads, 0);
    QCOMPARE(manager.unlocks, 1);
}

void tst_ToolParts::valuesKeepAllTheirDigits_data()
{
    QTest::addColumn<QVariant>("content");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("json");
    const auto row = [](const char *name, const QVariant &content, const QString &text,
                        const QString &json) { QTest::newRow(name) << content << text << json; };
    const auto same = [&row](const char *name, const QVariant &content, const QString &text) {
        row(name, content, text, text);
    };
    same("float", QVariant(0.1F), QStringLiteral("0.1"));
    same("double", QVariant(0.1), QStringLiteral("0.1"));
    same("third", QVariant(1.0 / 3.0), QStringLiteral("0.3333333333333333"));
    same("whole double", QVariant(85.0), QStringLiteral("85"));
    same("int64", QVariant(std::numeric_limits<qint64>::min()),
         QStringLiteral("-9223372036854775808"));
    same("uint64", QVariant(std::numeric_limits<quint64>::max()),
         QStringLiteral("18446744073709551615"));
    same("bool", QVariant(true), QStringLiteral("true"));
    row("text", QVariant(QStringLiteral("a \"b\"\n")), QStringLiteral("a \"b\"\n"),
        QStringLiteral("\"a \\\"b\\\"\\n\""));
    row("nan", QVariant(std::numeric_limits<double>::quiet_NaN()), QStringLiteral("nan"),
        QStringLiteral("\"nan\""));
    row("inf", QVariant(-std::numeric_limits<float>::infinity()), QStringLiteral("-inf"),
        QStringLiteral("\"-inf\""));
}

void tst_ToolParts::valuesKeepAllTheirDigits()
{
    QFETCH(QVariant, content);
    QFETCH(QString, text);
    QFETCH(QString, json);

    QCOMPARE(valueText(valid(content)), text);
    QCOMPARE(valueJson(valid(content)), json);
}

void tst_ToolParts::erroneousValuesHaveNoText()
{
    const ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

    QCOMPARE(valueText(value), QString());
    QCOMPARE(shortValueText(value), QString());
    QCOMPARE(valueJson(value), QStringLiteral("null"));
}

void tst_ToolParts::jsonKeepsOrderAndEscapes()
{
    const QString object = jsonObject({{QStringLiteral("z\""), QStringLiteral("1")},
                                       {QStringLiteral("a"), jsonString(QStringLiteral("°\\"))}});

    QCOMPARE(object, QStringLiteral("{\"z\\\"\": 1, \"a\": \"°\\\\\"}"));
    QCOMPARE(jsonArray({}), QStringLiteral("[]"));
    QCOMPARE(jsonArray({QStringLiteral("1"), QStringLiteral("2")}),
             QStringLiteral("[\n  1,\n  2\n]"));
}

void tst_ToolParts::stateNamesReadBack()
{
    for (int number = 0; number <= 9; ++number) {
        const auto state = static_cast<ErrorTypes>(number);
        QCOMPARE(stateFromText(QString::number(number)), state);
        QCOMPARE(stateFromText(stateName(state)), state);
        QCOMPARE(stateFromText(stateName(state).toUpper()), state);
        QCOMPARE(stateFromText(getProcessValueStateTypeAsString(state)), state);
    }
    for (const auto &text : {QStringLiteral("10"), QStringLiteral("-1"), QStringLiteral(""),
                             QStringLiteral("03"), QStringLiteral("not defined")}) {
        QVERIFY_EXCEPTION_THROWN(stateFromText(text), Failure);
    }
}

void tst_ToolParts::aNumberThatIsNoStateIsNamedByItself()
{
    QCOMPARE(stateName(static_cast<ErrorTypes>(77)), QStringLiteral("state-77"));
    QCOMPARE(stateName(static_cast<ErrorTypes>(-1)), QStringLiteral("state--1"));
}

void tst_ToolParts::suggestionsNeedLikeness_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("hint");
    QTest::newRow("letters exchanged")
        << QStringLiteral("wacth") << QStringLiteral(" (did you mean 'watch'?)");
    QTest::newRow("other case") << QStringLiteral("GET")
                                << QStringLiteral(" (did you mean 'get'?)");
    QTest::newRow("nothing typed") << QString() << QString();
    QTest::newRow("another word") << QStringLiteral("temperature") << QString();
}

void tst_ToolParts::suggestionsNeedLikeness()
{
    QFETCH(QString, word);
    QFETCH(QString, hint);

    QCOMPARE(suggestion(word, {QStringLiteral("get"), QStringLiteral("watch")}), hint);
}

void tst_ToolParts::oneIsNotSeveral()
{
    QCOMPARE(countText(0, "set"), QString("0 sets"));
    QCOMPARE(countText(1, "set"), QString("1 set"));
    QCOMPARE(countText(1, "leaf", "leaves"), QString("1 leaf"));
    QCOMPARE(countText(18446744073709551615U, "leaf", "leaves"),
             QString("18446744073709551615 leaves"));
}

void tst_ToolParts::tableAlignsAndKeepsItsWidths()
{
    Table table({{QStringLiteral("URL"), Table::Alignment::Left},
                 {QStringLiteral("VALUE"), Table::Alignment::Right},
                 {QStringLiteral("UNIT"), Table::Alignment::Left}});
    table.addRow({QStringLiteral("a/long/one"), QStringLiteral("1"), QStringLiteral("°C")});
    table.addRow({QStringLiteral("b"), QStringLiteral("-12.345"), QString()});

    QCOMPARE(table.lines(), (QStringList{QStringLiteral("URL           VALUE  UNIT"),
                                         QStringLiteral("a/long/one        1  °C"),
                                         QStringLiteral("b           -12.345")}));

    table.clearRows();
    table.addRow({QStringLiteral("c"), QStringLiteral("2"), QString()});

    QCOMPARE(table.lines(), (QStringList{QStringLiteral("URL           VALUE  UNIT"),
                                         QStringLiteral("c                 2")}));
}

void tst_ToolParts::nothingInACellMovesTheCursor()
{
    Table table({{QStringLiteral("T"), Table::Alignment::Left}});
    table.addRow({QStringLiteral("a\033[2Jb\nc\u202E")});

    QCOMPARE(table.lines().at(1), QStringLiteral("a\\u001b[2Jb\\nc\\u202e"));
    QCOMPARE(printable(QStringLiteral("tab\t")), QStringLiteral("tab\\t"));
}

QTEST_GUILESS_MAIN(tst_ToolParts)
#include "tst_ToolParts.moc"
