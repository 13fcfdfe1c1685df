#include "Configuration/ConfigurationAndProcessDataPropertyHandler.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QtTest>

using Handler = ConfigurationAndProcessDataPropertyHandler;
using Leaf = ConfigurationDataValue;

namespace {

const QVariant untouched = QStringLiteral("untouched");

Handler::PropertyMap exampleProperties()
{
    const QVariantMap point{{"x", 1.5}, {"y", QVariantList{7, 8}}};
    const QVariantList table{QVariantList{11, 12}, QVariantList{21, QVariantList{31, 32}}};
    return {
        {"plain", 5},
        {"gone", QVariant()},
        {"map", QVariantMap{{"b", 2}, {"", 3}, {"inner", QVariantMap{{"c", "deep"}}}}},
        {"hash", QVariantHash{{"b", 4}}},
        {"list", QVariantList{"zero", point}},
        {"table", table},
        {"words", QStringList{"one", "two"}},
        {"x1[0]", "literal"},
        {"", QVariantMap{{"b", "below nothing"}}},
    };
}

QVariant read(const QString &path)
{
    QVariant result = untouched;
    Handler::iteratePropertyMapForGettingValue(exampleProperties(), path, result);
    return result;
}

} // namespace

class tst_PropertyPathsReading : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theDimensionIsCutOutOfThePiece_data();
    void theDimensionIsCutOutOfThePiece();

    void aPathLeadsToItsValue_data();
    void aPathLeadsToItsValue();
    void aPathThatLeadsNowhereLeavesTheResult_data();
    void aPathThatLeadsNowhereLeavesTheResult();
    void anEmptyPathIsReported();
    void anInvalidEntryIsAValueOfAPath();
    void anEmptyIndexInsideIsNoNumber();
    void theListIsLookedForBeforeTheIndex();

    void withoutIndexAndPieceTheValueItselfIsTheResult();
    void aNegativeIndexLeadsNowhere();
    void indicesAreFollowedBeforePieces();

    void elementsReadByPath();
    void elementsReportAnEmptyKey();
};

void tst_PropertyPathsReading::theDimensionIsCutOutOfThePiece_data()
{
    QTest::addColumn<QString>("piece");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QStringList>("indices");

    const QStringList none;
    QTest::newRow("no brackets") << "a"
                                 << "a" << none;
    QTest::newRow("empty") << ""
                           << "" << none;
    QTest::newRow("one index") << "a[2]"
                               << "a" << QStringList{"2"};
    QTest::newRow("index of several digits") << "abC[012]"
                                             << "abC" << QStringList{"012"};
    QTest::newRow("two indices") << "a[1,3]"
                                 << "a" << QStringList{"1", "3"};
    QTest::newRow("empty index inside") << "x[1,,2]"
                                        << "x" << QStringList{"1", "", "2"};
    QTest::newRow("empty index at the end") << "x[1,]"
                                            << "x" << QStringList{"1", ""};
    QTest::newRow("letter only before the bracket") << "3_a[1]"
                                                    << "3_a" << QStringList{"1"};
    QTest::newRow("text behind") << "a[1]b"
                                 << "ab" << QStringList{"1"};
    QTest::newRow("two dimensions") << "a[1]b[2]"
                                    << "ab" << QStringList{"1"};
    QTest::newRow("adjoining dimensions") << "a[1][2,3]"
                                          << "a" << QStringList{"1"};
    QTest::newRow("only the second one counts") << "a5[1]b[2]"
                                                << "ab" << QStringList{"2"};
    QTest::newRow("loose bracket behind") << "a[1]]"
                                          << "a" << QStringList{"1"};
    QTest::newRow("run before a loose bracket") << "1,2]a[3]"
                                                << "a" << QStringList{"3"};
    QTest::newRow("blank in another bracket") << "a[1]b[ 2]"
                                              << "ab[ " << QStringList{"1"};
    for (const char *key : {"a1[2]", "[2]", "a[,2]", "a[-1]", "a[]", "a[x]", "a[1", "a1]", "a [1]",
                            "a[ 1]", "a_[1]", "a[1 ]", "1,2]"}) {
        QTest::newRow(key) << key << key << none;
    }
    QTest::newRow("other letters")
        << QStringLiteral("\u00e4[1]") << QStringLiteral("\u00e4[1]") << none;
}

void tst_PropertyPathsReading::theDimensionIsCutOutOfThePiece()
{
    QFETCH(QString, piece);
    LogCapture log;

    const QStringList indices = Handler::getAndRemoveDimension(piece);

    QTEST(indices, "indices");
    QTEST(piece, "key");
    COMPARE_LOG(log);
}

void tst_PropertyPathsReading::aPathLeadsToItsValue_data()
{
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("plain") << QVariant(5);
    QTest::newRow("map/b") << QVariant(2);
    QTest::newRow("map/inner/c") << QVariant("deep");
    QTest::newRow("map/") << QVariant(3);
    QTest::newRow("hash/b") << QVariant(4);
    QTest::newRow("hash") << QVariant(QVariantHash{{"b", 4}});
    QTest::newRow("list[0]") << QVariant("zero");
    QTest::newRow("list[01]/x") << QVariant(1.5);
    QTest::newRow("list[1]/y[1]") << QVariant(8);
    QTest::newRow("list[1]/y") << QVariant(QVariantList{7, 8});
    QTest::newRow("table[1]") << QVariant(QVariantList{21, QVariantList{31, 32}});
    QTest::newRow("table[0,1]") << QVariant(12);
    QTest::newRow("table[1,1,0]") << QVariant(31);
    QTest::newRow("ta[1]ble") << QVariant(QVariantList{21, QVariantList{31, 32}});
    QTest::newRow("words[1]") << QVariant("two");
    QTest::newRow("x1[0]") << QVariant("literal");
    QTest::newRow("/b") << QVariant("below nothing");
}

void tst_PropertyPathsReading::aPathLeadsToItsValue()
{
    QFETCH(QVariant, expected);
    LogCapture log;

    const QVariant result = read(QString::fromLatin1(QTest::currentDataTag()));

    QCOMPARE(result, expected);
    QCOMPARE(result.userType(), expected.userType());
    COMPARE_LOG(log);
}

void tst_PropertyPathsReading::aPathThatLeadsNowhereLeavesTheResult_data()
{
    QTest::addColumn<QString>("message");

    const QString noMap = QStringLiteral("No map for key: \"%1\"");
    const QString noNumber = QStringLiteral("Can not convert Instanz to a number: \"%1\"");
    const QString outOfRange = QStringLiteral("Incorrect number of dimensions: %1");
    QTest::newRow("missing") << QString();
    QTest::newRow("missing/b") << QString();
    QTest::newRow("missing[0]") << QString();
    QTest::newRow("Plain") << QString();
    QTest::newRow("map/missing") << QString();
    QTest::newRow("map/missing/c") << QString();
    QTest::newRow("map/inner/missing[1]") << QString();
    QTest::newRow("map//b") << noMap.arg("b");
    QTest::newRow("hash/") << QString();
    QTest::newRow("hash/b/") << noMap.arg("");
    QTest::newRow("/") << QString();
    QTest::newRow("/plain") << QString();
    QTest::newRow("plain/") << noMap.arg("");
    QTest::newRow("plain/b") << noMap.arg("b");
    QTest::newRow("plain/b[1]/c") << noMap.arg("b");
    QTest::newRow("gone/b") << noMap.arg("b");
    QTest::newRow("list/b") << noMap.arg("b");
    QTest::newRow("list[0]/x") << noMap.arg("x");
    QTest::newRow("list[2]") << outOfRange.arg(2);
    QTest::newRow("list[1]/y[2]") << outOfRange.arg(2);
    QTest::newRow("table[1,2]") << outOfRange.arg(2);
    QTest::newRow("list[99999999999]") << noNumber.arg("99999999999");
    QTest::newRow("table[1,]") << noNumber.arg("");
    QTest::newRow("plain[0]") << QString();
    QTest::newRow("map[0]") << QString();
    QTest::newRow("gone[0]") << QString();
    QTest::newRow("list[0,0]") << QString();
    QTest::newRow("table[0,0,0]") << QString();
}

void tst_PropertyPathsReading::aPathThatLeadsNowhereLeavesTheResult()
{
    QFETCH(QString, message);
    LogCapture log;

    QCOMPARE(read(QString::fromLatin1(QTest::currentDataTag())), untouched);

    QCOMPARE(log.take(), message.isNull() ? QList<LogLine>() : QList<LogLine>{warning(message)});
}

void tst_PropertyPathsReading::anEmptyPathIsReported()
{
    LogCapture log;

    QCOMPARE(read(QString()), untouched);
    COMPARE_LOG(log, warning("Key is empty"));
    QCOMPARE(read(QStringLiteral("")), untouched);
    COMPARE_LOG(log, warning("Key is empty"));
}

void tst_PropertyPathsReading::anInvalidEntryIsAValueOfAPath()
{
    LogCapture log;

    QVERIFY(!read(QStringLiteral("gone")).isValid());
    COMPARE_LOG(log);
}

void tst_PropertyPathsReading::anEmptyIndexInsideIsNoNumber()
{
    const QVariantList inner{1, QVariantList{2, 3}};
    const Handler::PropertyMap properties{{"x", QVariantList{0, inner}}};
    QVariant result = untouched;
    LogCapture log;

    Handler::iteratePropertyMapForGettingValue(properties, "x[1,,1]", result);

    QCOMPARE(result, untouched);
    COMPARE_LOG(log, warning("Can not convert Instanz to a number: \"\""));
}

void tst_PropertyPathsReading::theListIsLookedForBeforeTheIndex()
{
    LogCapture log;

    QCOMPARE(read(QStringLiteral("plain[99999999999]")), untouched);
    QCOMPARE(read(QStringLiteral("list[0,,1]")), untouched);
    COMPARE_LOG(log);
}

void tst_PropertyPathsReading::withoutIndexAndPieceTheValueItselfIsTheResult()
{
    QVariant result = untouched;
    LogCapture log;

    Handler::iteratePropertiesForGettingValues(QVariantMap{{"a", 1}}, {}, {}, result);
    QCOMPARE(result, QVariant(QVariantMap{{"a", 1}}));

    Handler::iteratePropertiesForGettingValues(QVariant(), {}, {}, result);
    QVERIFY(!result.isValid());
    COMPARE_LOG(log);
}

void tst_PropertyPathsReading::aNegativeIndexLeadsNowhere()
{
    QVariant result = untouched;
    LogCapture log;

    Handler::iteratePropertiesForGettingValues(QVariantList{1, 2}, {}, {"-1"}, result);
    COMPARE_LOG(log, warning("Incorrect number of dimensions: -1"));
    Handler::iteratePropertiesForGettingValues(QVariantList{1, 2}, {}, {"one"}, result);
    COMPARE_LOG(log, warning("Can not convert Instanz to a number: \"one\""));
    Handler::iteratePropertiesForGettingValues(QVariantList{1, 2}, {}, {"0x1"}, result);
    COMPARE_LOG(log, warning("Can not convert Instanz to a number: \"0x1\""));
    Handler::iteratePropertiesForGettingValues(QVariantList(), {}, {"0"}, result);
    COMPARE_LOG(log, warning("Incorrect number of dimensions: 0"));

    QCOMPARE(result, untouched);
}

void tst_PropertyPathsReading::indicesAreFollowedBeforePieces()
{
    const QVariantList list{QVariantMap{{"a", QVariantList{1, 2}}}};
    QVariant result;
    LogCapture log;

    Handler::iteratePropertiesForGettingValues(list, {"a[1]"}, {"0"}, result);

    QCOMPARE(result, QVariant(2));
    COMPARE_LOG(log);
}

void tst_PropertyPathsReading::elementsReadByPath()
{
    const QJsonObject inner{{"b", QJsonArray{1.5, QJsonObject{{"c", "deep"}}}}};
    const Leaf leaf({{"type", "record"}, {"a", inner}}, nullptr);
    LogCapture log;

    QCOMPARE(leaf.getProperty("type"), QVariant("record"));
    QCOMPARE(leaf.getProperty("a/b[1]/c"), QVariant("deep"));
    QVERIFY(leaf.hasProperty("a/b[0]"));
    QVERIFY(!leaf.getProperty("a/c").isValid());
    QVERIFY(!leaf.hasProperty("a/c"));
    QVERIFY(!leaf.getProperty("a/").isValid());
    QVERIFY(!leaf.getProperty("type[0]").isValid());
    COMPARE_LOG(log);

    QVERIFY(!leaf.hasProperty("a/b[2]"));
    COMPARE_LOG(log, warning("Incorrect number of dimensions: 2"));
    QVERIFY(!leaf.getProperty("type/a").isValid());
    COMPARE_LOG(log, warning("No map for key: \"a\""));
}

void tst_PropertyPathsReading::elementsReportAnEmptyKey()
{
    const Leaf leaf({{"", 1}}, nullptr);
    LogCapture log;

    QVERIFY(!leaf.getProperty(QString()).isValid());
    COMPARE_LOG(log, warning("Key is empty"));
    QVERIFY(!leaf.hasProperty(QString()));
    COMPARE_LOG(log, warning("Key is empty"));
}

QTEST_GUILESS_MAIN(tst_PropertyPathsReading)

#include "tst_PropertyPathsReading.moc"
