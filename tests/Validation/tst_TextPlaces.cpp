#include "Validation/TextPlaces_p.h"

#include <QtTest>

class tst_TextPlaces : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void placeIsCountedFromOne_data();
    void placeIsCountedFromOne();
    void formerPlaceIsFoundAgain();
};

void tst_TextPlaces::placeIsCountedFromOne_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("line");
    QTest::addColumn<int>("column");
    const auto row = [](const char *name, const QByteArray &text, int offset, int line,
                        int column) { QTest::newRow(name) << text << offset << line << column; };
    row("first byte", "abc", 0, 1, 1);
    row("within a line", "abc", 2, 1, 3);
    row("line feed itself", "ab\nc", 2, 1, 3);
    row("behind a line feed", "ab\nc", 3, 2, 1);
    row("line end of two bytes", "a\r\nb", 3, 2, 1);
    row("empty lines", "\n\n\nx", 3, 4, 1);
    row("behind two bytes", "\xc3\xa9x", 2, 1, 2);
    row("behind four bytes", "\xf0\x9f\x98\x80x", 4, 1, 2);
    row("behind a byte order mark", "\xef\xbb\xbf{x", 4, 1, 2);
    row("byte order mark within", "x\xef\xbb\xbfy", 4, 1, 3);
    row("end", "abc", 3, 1, 4);
    row("beyond the end", "abc", 100, 1, 4);
    row("empty", "", 0, 1, 1);
}

void tst_TextPlaces::placeIsCountedFromOne()
{
    QFETCH(QByteArray, text);
    QFETCH(int, offset);
    TextPlaces places(text);

    const TextPlaces::Place place = places.placeOf(offset);

    QTEST(place.line, "line");
    QTEST(place.column, "column");
}

void tst_TextPlaces::formerPlaceIsFoundAgain()
{
    TextPlaces places("\xef\xbb\xbf{\n  x\n}");
    QCOMPARE(places.placeOf(9).line, 3);

    const TextPlaces::Place place = places.placeOf(7);

    QCOMPARE(place.line, 2);
    QCOMPARE(place.column, 3);
}

QTEST_APPLESS_MAIN(tst_TextPlaces)
#include "tst_TextPlaces.moc"
