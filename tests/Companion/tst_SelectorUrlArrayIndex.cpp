#include "Companion/SelectorUrlArrayIndex.h"

#include <QtTest>

#include <type_traits>

// Callers run no destructor of their own on an index.
static_assert(std::is_trivially_destructible_v<SelectorUrlArrayIndex>);

class tst_SelectorUrlArrayIndex : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newIndexIsNotValid();
    void urlWithIndexIsTakenApart_data();
    void urlWithIndexIsTakenApart();
    void plainUrlIsDeliveredWhole_data();
    void plainUrlIsDeliveredWhole();
    void plainUrlClearsAFormerIndex();
    void newIndexReplacesAFormerOne();
    void urlMayBeItsOwnTarget();
};

void tst_SelectorUrlArrayIndex::newIndexIsNotValid()
{
    const SelectorUrlArrayIndex index;

    QVERIFY(!index.isValid());
    QCOMPARE(index.getRowIndex(), 0U);
    QCOMPARE(index.getColumnIndex(), 0U);
}

void tst_SelectorUrlArrayIndex::urlWithIndexIsTakenApart_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("path");
    QTest::addColumn<quint32>("row");
    QTest::addColumn<quint32>("column");
    const auto add = [](const char *name, const char *url, const char *path, quint32 row,
                        quint32 column) {
        QTest::newRow(name) << QString::fromUtf8(url) << QString::fromUtf8(path) << row << column;
    };
    add("path of two pieces", "tables/calibration#3,1", "tables/calibration", 3, 1);
    add("first cell", "a#0,0", "a", 0, 0);
    add("row before column", "a#1,2", "a", 1, 2);
    add("several digits", "a#10,205", "a", 10, 205);
    add("greatest index", "a#4294967295,4294967295", "a", 4294967295U, 4294967295U);
    add("leading slash", "/a/b#1,2", "/a/b", 1, 2);
    add("slash before the mark", "a/#1,2", "a/", 1, 2);
    add("two index forms", "a#1,2#3,4", "a#1,2", 3, 4);
    add("mark in the path", "a#b/c#3,4", "a#b/c", 3, 4);
    add("comma in the path", "a,b#3,4", "a,b", 3, 4);
    add("two marks", "a##3,4", "a#", 3, 4);
    add("one blank as path", " #3,4", " ", 3, 4);
    add("umlaut in the path", "Messgr\u00f6\u00dfe#3,4", "Messgr\u00f6\u00dfe", 3, 4);
}

void tst_SelectorUrlArrayIndex::urlWithIndexIsTakenApart()
{
    QFETCH(QString, url);
    QFETCH(QString, path);
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex = QStringLiteral("former");

    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, urlWithoutIndex);

    QVERIFY(index.isValid());
    QTEST(index.getRowIndex(), "row");
    QTEST(index.getColumnIndex(), "column");
    QCOMPARE(urlWithoutIndex, path);
}

void tst_SelectorUrlArrayIndex::plainUrlIsDeliveredWhole_data()
{
    QTest::addColumn<QString>("url");
    const auto add = [](const char *name, const char *url) {
        QTest::newRow(name) << QString::fromUtf8(url);
    };
    add("empty", "");
    add("only a slash", "/");
    add("path", "tables/calibration");
    add("mark and a word", "a#b");
    add("mark at the end", "a#");
    add("one index", "a#1");
    add("brackets", "x[1]");
    add("brackets of two dimensions", "x[1][2]");
    add("comma without mark", "a1,2");
    add("comma before the mark", "a,1#2");
    add("nothing before the mark", "#1,2");
    add("no row", "a#,2");
    add("no column", "a#1,");
    add("only a comma", "a#,");
    add("three indices", "a#1,2,3");
    add("piece behind the index", "a#1,2/b");
    add("slash behind the index", "a#1,2/");
    add("blank behind the index", "a#1,2 ");
    add("blank before the row", "a# 1,2");
    add("blank before the column", "a#1, 2");
    add("negative row", "a#-1,2");
    add("negative column", "a#1,-2");
    add("plus sign", "a#+1,2");
    add("leading zero in the row", "a#01,2");
    add("leading zero in the column", "a#1,02");
    add("two zeros", "a#00,0");
    add("fraction", "a#1.0,2");
    add("hexadecimal", "a#0x1,2");
    add("letters", "a#x,y");
    add("row just above 32 bits", "a#4294967296,0");
    add("column just above 32 bits", "a#0,4294967296");
    add("row just above 64 bits", "a#18446744073709551617,0");
    add("row of very many digits", "a#99999999999999999999999999999999999999999999,0");
    add("digits of another script", "a#\u0661,\u0662");
    add("full-width digits", "a#\uff11,\uff12");
}

void tst_SelectorUrlArrayIndex::plainUrlIsDeliveredWhole()
{
    QFETCH(QString, url);
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex = QStringLiteral("former");

    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, urlWithoutIndex);

    QVERIFY(!index.isValid());
    QCOMPARE(index.getRowIndex(), 0U);
    QCOMPARE(index.getColumnIndex(), 0U);
    QCOMPARE(urlWithoutIndex, url);
}

void tst_SelectorUrlArrayIndex::plainUrlClearsAFormerIndex()
{
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(QStringLiteral("a#1,2"), index, urlWithoutIndex);
    QVERIFY(index.isValid());

    SelectorUrlArrayIndex::splitUrlAndArrayIndex(QStringLiteral("b#7,x"), index, urlWithoutIndex);

    QVERIFY(!index.isValid());
    QCOMPARE(index.getRowIndex(), 0U);
    QCOMPARE(index.getColumnIndex(), 0U);
    QCOMPARE(urlWithoutIndex, QStringLiteral("b#7,x"));
}

void tst_SelectorUrlArrayIndex::newIndexReplacesAFormerOne()
{
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(QStringLiteral("a#1,2"), index, urlWithoutIndex);

    SelectorUrlArrayIndex::splitUrlAndArrayIndex(QStringLiteral("b#3,4"), index, urlWithoutIndex);

    QVERIFY(index.isValid());
    QCOMPARE(index.getRowIndex(), 3U);
    QCOMPARE(index.getColumnIndex(), 4U);
    QCOMPARE(urlWithoutIndex, QStringLiteral("b"));
}

void tst_SelectorUrlArrayIndex::urlMayBeItsOwnTarget()
{
    SelectorUrlArrayIndex index;
    QString url = QStringLiteral("a/b#5,6");

    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, url);

    QVERIFY(index.isValid());
    QCOMPARE(index.getRowIndex(), 5U);
    QCOMPARE(index.getColumnIndex(), 6U);
    QCOMPARE(url, QStringLiteral("a/b"));
}

QTEST_GUILESS_MAIN(tst_SelectorUrlArrayIndex)
#include "tst_SelectorUrlArrayIndex.moc"
