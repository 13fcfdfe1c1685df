#include "states/StateTable.h"

#include <QtTest>

using namespace ProcessDataDefinitions;

/// The one table of the states for all programs.
class tst_StateTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowsAreThoseOfTheStates_data();
    void rowsAreThoseOfTheStates();
    void eachRowStandsAtItsNumber();
    void numberThatIsNoStateHasNoValue_data();
    void numberThatIsNoStateHasNoValue();
};

void tst_StateTable::rowsAreThoseOfTheStates_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("namurState");
    QTest::addColumn<bool>("hasValue");

    const auto row = [](int state, const char *name, NamurStateTypes namurState, bool hasValue) {
        QTest::newRow(name) << state << QString::fromLatin1(name) << static_cast<int>(namurState)
                            << hasValue;
    };
    row(0, "valid", NAMUR_STATE_TYPE_NONE, true);
    row(1, "underrange", NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION, false);
    row(2, "overrange", NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION, false);
    row(3, "no-input", NAMUR_STATE_TYPE_FAILURE, false);
    row(4, "division-by-zero", NAMUR_STATE_TYPE_FAILURE, false);
    row(5, "incorrect-mathematic", NAMUR_STATE_TYPE_FAILURE, false);
    row(6, "invalid-temperature", NAMUR_STATE_TYPE_FAILURE, false);
    row(7, "sensor-short-circuit", NAMUR_STATE_TYPE_FAILURE, false);
    row(8, "sensor-breakage", NAMUR_STATE_TYPE_FAILURE, false);
    row(9, "timeout", NAMUR_STATE_TYPE_FAILURE, false);
}

void tst_StateTable::rowsAreThoseOfTheStates()
{
    QFETCH(int, state);

    const StateRow &row = StateTable::rowOf(static_cast<ErrorTypes>(state));

    QTEST(QString::fromLatin1(row.name), "name");
    QTEST(static_cast<int>(row.derivedNamurState), "namurState");
    QTEST(row.hasValue, "hasValue");
    QTEST(StateTable::nameOf(row.state), "name");
}

void tst_StateTable::eachRowStandsAtItsNumber()
{
    for (int number = 0; number < StateTable::count; ++number) {
        QCOMPARE(static_cast<int>(StateTable::rows()[static_cast<std::size_t>(number)].state),
                 number);
    }
}

void tst_StateTable::numberThatIsNoStateHasNoValue_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("name");

    QTest::newRow("below") << -1 << QStringLiteral("state--1");
    QTest::newRow("just above") << 10 << QStringLiteral("state-10");
    QTest::newRow("far above") << 77 << QStringLiteral("state-77");
}

void tst_StateTable::numberThatIsNoStateHasNoValue()
{
    QFETCH(int, number);
    const auto state = static_cast<ErrorTypes>(number);

    QVERIFY(!StateTable::rowOf(state).hasValue);
    QCOMPARE(StateTable::rowOf(state).derivedNamurState, NAMUR_STATE_TYPE_FAILURE);
    QTEST(StateTable::nameOf(state), "name");
}

QTEST_GUILESS_MAIN(tst_StateTable)
#include "tst_StateTable.moc"
