#include "text/CellText.h"
#include "text/TrendBars.h"

#include <QtTest>

#include <limits>

/// Texts in the cells of a terminal.
class tst_CellText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingDisturbsTheScreen_data();
    void nothingDisturbsTheScreen();
    void asciiShowsQuestionMarks();
    void wideCharactersTakeTwoCells();
    void textFillsItsCells_data();
    void textFillsItsCells();
    void barsReachFromTheLeastToTheMost();
    void asciiBarsHaveThreeSteps();
    void valuesThatNeverChangeLieInTheMiddle();
    void greatestNumbersHaveBars();
};

void tst_CellText::nothingDisturbsTheScreen_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    QTest::newRow("plain") << QStringLiteral("pump 1") << QStringLiteral("pump 1");
    QTest::newRow("line break") << QStringLiteral("a\nb") << QStringLiteral("a\\nb");
    QTest::newRow("escape") << QStringLiteral("\033[2J") << QStringLiteral("\\u001b[2J");
    QTest::newRow("C1") << QStringLiteral("\u009b2J") << QStringLiteral("\\u009b2J");
    QTest::newRow("delete") << QStringLiteral("a\u007f") << QStringLiteral("a\\u007f");
    QTest::newRow("right to left") << QStringLiteral("\u202ex") << QStringLiteral("\\u202ex");
    QTest::newRow("zero width joiner") << QStringLiteral("\u200d") << QStringLiteral("\\u200d");
    QTest::newRow("letter and accent") << QStringLiteral("e\u0301") << QStringLiteral("\u00e9");
    QTest::newRow("accent alone") << QStringLiteral("x\u0334") << QStringLiteral("x\\u0334");
    QTest::newRow("letter of the country") << QStringLiteral("°C") << QStringLiteral("°C");
    QTest::newRow("half a character") << QString(QChar(0xd800)) << QString(QChar(0xfffd));
}

void tst_CellText::nothingDisturbsTheScreen()
{
    QFETCH(QString, text);
    QFETCH(QString, shown);

    QCOMPARE(cellText(text, Characters::Unicode), shown);
}

void tst_CellText::asciiShowsQuestionMarks()
{
    QCOMPARE(cellText(QStringLiteral("°C 漢"), Characters::Ascii), QStringLiteral("?C ?"));
}

void tst_CellText::wideCharactersTakeTwoCells()
{
    QCOMPARE(cellWidth(QStringLiteral("a漢字b")), 6);
    QCOMPARE(cellWidth(QString()), 0);
}

void tst_CellText::textFillsItsCells_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("cells");
    QTest::addColumn<QString>("left");
    QTest::addColumn<QString>("right");
    QTest::newRow("shorter") << QStringLiteral("ab") << 4 << QStringLiteral("ab  ")
                             << QStringLiteral("  ab");
    QTest::newRow("as long") << QStringLiteral("abcd") << 4 << QStringLiteral("abcd")
                             << QStringLiteral("abcd");
    QTest::newRow("longer") << QStringLiteral("abcde") << 4 << QStringLiteral("abc…")
                            << QStringLiteral("abc…");
    QTest::newRow("wide one at the cut")
        << QStringLiteral("ab漢de") << 4 << QStringLiteral("ab… ") << QStringLiteral(" ab…");
    QTest::newRow("no cell") << QStringLiteral("ab") << 0 << QString() << QString();
    QTest::newRow("less than none") << QStringLiteral("ab") << -1 << QString() << QString();
}

void tst_CellText::textFillsItsCells()
{
    QFETCH(QString, text);
    QFETCH(int, cells);
    QFETCH(QString, left);
    QFETCH(QString, right);

    QCOMPARE(leftInCells(text, cells, Characters::Unicode), left);
    QCOMPARE(rightInCells(text, cells, Characters::Unicode), right);
}

namespace {

TrendColumn bar(double value)
{
    return {TrendColumn::What::Value, value};
}

} // namespace

void tst_CellText::barsReachFromTheLeastToTheMost()
{
    const QVector<TrendColumn> columns{
        bar(0), bar(7.5), bar(15), TrendColumn(), {TrendColumn::What::Error, 0}};

    const QStringList lines = trendBars(columns, 0, 15, 2, Characters::Unicode);

    QCOMPARE(lines, (QStringList{QStringLiteral(" ▁█  "), QStringLiteral("▁██ x")}));
}

void tst_CellText::asciiBarsHaveThreeSteps()
{
    const QVector<TrendColumn> columns{bar(0), bar(1), bar(2)};

    QCOMPARE(trendBars(columns, 0, 2, 1, Characters::Ascii), QStringList(QStringLiteral(".:#")));
}

void tst_CellText::valuesThatNeverChangeLieInTheMiddle()
{
    QCOMPARE(trendBars({bar(5)}, 5, 5, 1, Characters::Ascii), QStringList(QStringLiteral(":")));
}

void tst_CellText::greatestNumbersHaveBars()
{
    const double most = std::numeric_limits<double>::max();

    QCOMPARE(trendBars({bar(-most), bar(most)}, -most, most, 1, Characters::Ascii),
             QStringList(QStringLiteral(".#")));
}

QTEST_GUILESS_MAIN(tst_CellText)
#include "tst_CellText.moc"
