#include "Companion/NearestWord.h"

#include <QtTest>

// Which word was meant by another one.

class tst_NearestWord : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void distance_data();
    void distance();
    void nearest_data();
    void nearest();
};

void tst_NearestWord::distance_data()
{
    QTest::addColumn<QString>("left");
    QTest::addColumn<QString>("right");
    QTest::addColumn<int>("letters");

    QTest::newRow("equal") << "value"
                           << "value" << 0;
    QTest::newRow("nothing") << ""
                             << "" << 0;
    QTest::newRow("from nothing") << ""
                                  << "abc" << 3;
    QTest::newRow("to nothing") << "abc"
                                << "" << 3;
    QTest::newRow("one more at the end") << "value"
                                         << "values" << 1;
    QTest::newRow("some more at the beginning") << "value"
                                                << "defaultvalue" << 7;
    QTest::newRow("one less at the beginning") << "value"
                                               << "alue" << 1;
    QTest::newRow("one other") << "value"
                               << "valve" << 1;
    QTest::newRow("exchanged neighbours") << "value"
                                          << "vlaue" << 2;
    QTest::newRow("all others") << "abc"
                                << "xyz" << 3;
}

void tst_NearestWord::distance()
{
    QFETCH(QString, left);
    QFETCH(QString, right);
    QFETCH(int, letters);

    QCOMPARE(editDistance(left, right), letters);
    QCOMPARE(editDistance(right, left), letters);
}

void tst_NearestWord::nearest_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QStringList>("candidates");
    QTest::addColumn<QString>("meant");

    QTest::newRow("none") << "value" << QStringList() << "";
    QTest::newRow("itself") << "value" << QStringList{"values", "value"} << "value";
    QTest::newRow("nearer one behind") << "value" << QStringList{"vlaue", "valve"} << "valve";
    QTest::newRow("first of two as near") << "value" << QStringList{"valve", "values"} << "valve";
    QTest::newRow("other case") << "VALUE" << QStringList{"value"} << "value";
    QTest::newRow("two of a short word") << "unit" << QStringList{"units12"} << "";
    QTest::newRow("two others of a short word")
        << "unit" << QStringList{"uncle", "unity1"} << "unity1";
    QTest::newRow("a third of a long word")
        << "minimumab" << QStringList{"minimumxyz"} << "minimumxyz";
    QTest::newRow("more than a third") << "minimumab" << QStringList{"minimumwxyz"} << "";
    QTest::newRow("nothing of it left") << "ab" << QStringList{"xy"} << "";
    QTest::newRow("end of a long one") << "value" << QStringList{"defaultvalue"} << "";
}

void tst_NearestWord::nearest()
{
    QFETCH(QString, word);
    QFETCH(QStringList, candidates);
    QFETCH(QString, meant);

    QCOMPARE(nearestWord(word, candidates), meant);
}

QTEST_GUILESS_MAIN(tst_NearestWord)

#include "tst_NearestWord.moc"
