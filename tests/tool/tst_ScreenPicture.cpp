#include "screen/ScreenPicture.h"

#include <QtTest>

using namespace ProcessDataDefinitions;

namespace {

/// Values that a test names, and how often somebody has asked for one.
class NamedValues : public ShownValues
{
public:
    std::optional<ProcessValue> value(int leaf) const override
    {
        ++asked;
        return leaf < values.size() ? std::make_optional(values[leaf]) : std::nullopt;
    }
    QString unit(int /*leaf*/) const override { return QStringLiteral("bar"); }

    QVector<ProcessValue> values;
    mutable int asked = 0;
};

QStringList textOf(const QVector<ScreenLine> &lines)
{
    QStringList texts;
    for (const auto &line : lines) {
        QString text;
        for (const auto &span : line) {
            text += span.text;
        }
        texts.append(text);
    }
    return texts;
}

QStringList manyUrls(int count)
{
    QStringList urls;
    for (int i = 0; i < count; ++i) {
        urls.append(QStringLiteral("leaf%1").arg(i));
    }
    return urls;
}

ProcessValue valid(const QVariant &value)
{
    return {value, PROCESS_VALUE_ERROR_TYPE_VALID};
}

ScreenFacts factsOf(const ValueTree &tree, const ShownValues &values)
{
    return {tree, values, QStringLiteral("tesselPlant"), {}};
}

} // namespace

/// The lines of the full screen.
class tst_ScreenPicture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyLineFillsTheTerminal_data();
    void everyLineFillsTheTerminal();
    void onlyWhatIsSeenIsMadeIntoText();
    void selectionIsAlwaysSeen();
    void pinnedValuesKeepTheirPlace();
    void unknownValueSaysSo();
    void statePaintsByItsWeight();
    void smallTerminalTellsWhatIsWrong();
    void textHasNoTrend();
};

void tst_ScreenPicture::everyLineFillsTheTerminal_data()
{
    QTest::addColumn<int>("columns");
    QTest::addColumn<int>("rows");
    for (const int columns : {1, 2, 3, 5, 17, 18, 20, 33, 34, 40, 48, 56, 72, 80, 200}) {
        for (const int rows : {1, 2, 3, 5, 6, 9, 12, 16, 24, 60}) {
            QTest::addRow("%dx%d", columns, rows) << columns << rows;
        }
    }
}

void tst_ScreenPicture::everyLineFillsTheTerminal()
{
    QFETCH(int, columns);
    QFETCH(int, rows);
    ValueTree tree(QStringList{QStringLiteral("pump/漢字漢字漢字漢字漢字/\033[2J"),
                               QStringLiteral("pump/level"), QStringLiteral("pump/name")});
    NamedValues values;
    values.values = {valid(QString(100, QChar(0x6f22))), valid(1.25),
                     ProcessValue(PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE)};
    tree.moveBy(2);
    tree.togglePin();
    ValueTrend trend(10);
    trend.add(ValueTrend::Time(1), values.values[1]);
    ScreenFacts facts = factsOf(tree, values);
    facts.trend = &trend;
    ScreenPicture picture(Characters::Unicode);

    for (const bool isHelpShown : {false, true}) {
        facts.isHelpShown = isHelpShown;
        const QStringList lines = textOf(picture.lines(facts, {rows, columns}));
        QCOMPARE(lines.size(), rows);
        for (const auto &line : lines) {
            QCOMPARE(cellWidth(line), columns);
            QVERIFY(!line.contains(QLatin1Char('\033')));
        }
    }
}

void tst_ScreenPicture::onlyWhatIsSeenIsMadeIntoText()
{
    const ValueTree tree(manyUrls(10000));
    const NamedValues values;
    ScreenPicture picture(Characters::Unicode);

    picture.lines(factsOf(tree, values), {24, 80});

    QVERIFY2(values.asked <= 24, qPrintable(QString::number(values.asked)));
}

void tst_ScreenPicture::selectionIsAlwaysSeen()
{
    ValueTree tree(manyUrls(100));
    const NamedValues values;
    ScreenPicture picture(Characters::Unicode);
    const auto selectedIsSeen = [&] {
        const auto lines = picture.lines(factsOf(tree, values), {8, 60});
        return std::count_if(lines.begin(), lines.end(),
                             [](const ScreenLine &line) { return line[0].isSelected; })
               == 1;
    };

    QVERIFY(selectedIsSeen());
    for (int i = 0; i < 100; ++i) {
        tree.moveBy(1);
        QVERIFY(selectedIsSeen());
    }
    tree.moveBy(-picture.pageRows());
    QVERIFY(selectedIsSeen());
    tree.moveToFirst();
    QVERIFY(selectedIsSeen());
}

void tst_ScreenPicture::pinnedValuesKeepTheirPlace()
{
    ValueTree tree(manyUrls(100));
    const NamedValues values;
    ScreenPicture picture(Characters::Ascii);
    tree.moveBy(2);
    tree.togglePin();
    tree.moveToLast();

    const QStringList lines = textOf(picture.lines(factsOf(tree, values), {8, 60}));

    QVERIFY2(lines[2].startsWith(QStringLiteral("?* leaf2 ")), qPrintable(lines[2]));
    QVERIFY(lines[6].startsWith(QStringLiteral("?  leaf99 ")));
}

void tst_ScreenPicture::unknownValueSaysSo()
{
    const ValueTree tree(manyUrls(1));
    const NamedValues values;
    ScreenPicture picture(Characters::Ascii);

    const QStringList lines = textOf(picture.lines(factsOf(tree, values), {8, 80}));

    QVERIFY(lines[2].startsWith(QStringLiteral("?  leaf0 ")));
    QVERIFY(lines[2].contains(QStringLiteral(" unknown ")));
}

void tst_ScreenPicture::statePaintsByItsWeight()
{
    QCOMPARE(paintOf(valid(1)), Paint::Good);
    QCOMPARE(paintOf(ProcessValue(PROCESS_VALUE_ERROR_TYPE_OVERRANGE)), Paint::Doubtful);
    QCOMPARE(paintOf(ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)), Paint::Bad);
}

void tst_ScreenPicture::smallTerminalTellsWhatIsWrong()
{
    const ValueTree tree(manyUrls(1));
    const NamedValues values;
    ScreenPicture picture(Characters::Ascii);
    ScreenFacts facts = factsOf(tree, values);

    QVERIFY(textOf(picture.lines(facts, {5, 20}))[0].startsWith(QStringLiteral("tesselPlant")));
    facts.status = {RegionStatus::Level::Bad, QStringLiteral("the region has gone")};
    QCOMPARE(textOf(picture.lines(facts, {5, 20}))[0], QStringLiteral("X the region has go~"));
}

void tst_ScreenPicture::textHasNoTrend()
{
    const ValueTree tree(manyUrls(1));
    const NamedValues values;
    ScreenPicture picture(Characters::Ascii);

    const QStringList lines = textOf(picture.lines(factsOf(tree, values), {9, 40}));

    QCOMPARE(lines[6].trimmed(), QStringLiteral("leaf0: a text has no trend"));
}

QTEST_GUILESS_MAIN(tst_ScreenPicture)
#include "tst_ScreenPicture.moc"
