#include "mirror/DomainStatus.h"
#include "mirror/MirrorCount.h"
#include "mirror/SampleFields.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <cstring>
#include <limits>

namespace {

constexpr qint64 second = 1000 * 1000;

ReceivedSet set(const char *source, quint32 attachment, quint64 generation, qint64 time = 0)
{
    ReceivedSet set;
    set.source = source;
    set.attachment = attachment;
    set.generation = generation;
    set.timeStamp = time;
    return set;
}

DomainStatus::Source source(quint64 generation, qint64 time, quint32 attachment = 1,
                            quint8 state = 0)
{
    return {QStringLiteral("device"), state, attachment, generation, time, 48};
}

DomainStatus::Receiver receiver(quint64 sets, quint64 leftOut, qint64 time)
{
    return {QStringLiteral("display"),
            QStringLiteral("plantMirror"),
            QByteArray(16, 's'),
            4711,
            sets,
            leftOut,
            1500,
            time};
}

QJsonObject only(const DomainStatus &status, const char *kind)
{
    const QJsonArray all =
        QJsonDocument::fromJson(status.json()).object()[QLatin1String(kind)].toArray();
    return all.size() == 1 ? all[0].toObject() : QJsonObject();
}

const QString region = QStringLiteral("plant");
const QByteArray sourceName(16, 's');
const QByteArray receiverName(16, 'r');

} // namespace

/// What is told of mirrors, without the engine that asks them.
class tst_MirrorStatus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void setsBetweenTwoAreLeftOut();
    void lagIsThatOfTheNewest();
    void textsOfSamplesAreCutAndNeverReadBeyond();
    void textsOfSamplesAreKnownByTheirBytes();
    void sourceIsToldWithItsRate();
    void numberBeyondThoseOfJsonIsNotNegative_data();
    void numberBeyondThoseOfJsonIsNotNegative();
    void regionMadeAnewBeginsANewRate();
    void clockThatGoesBackHasNoRate();
    void rateOfALongTimeIsThatOfItsEnd();
    void receiverIsToldWithItsLosses();
    void mirrorWithoutASourceIsTold();
    void whoHasGoneIsNotTold();
    void linesAreForPeople();
    void namesFromTheNetworkDoNotReachTheTerminal();
    void floodOfNamesIsBounded();
};

void tst_MirrorStatus::setsBetweenTwoAreLeftOut()
{
    MirrorCount count;

    count.addShown(set("a", 1, 100), 0);
    QCOMPARE(count.leftOut(), quint64{0});
    count.addShown(set("a", 1, 101), 0);
    QCOMPARE(count.leftOut(), quint64{0});
    count.addShown(set("a", 1, 105), 0);
    QCOMPARE(count.leftOut(), quint64{3});
    // The same again, after its source was in trouble.
    count.addShown(set("a", 1, 105), 0);
    QCOMPARE(count.leftOut(), quint64{3});
    count.addShown(set("a", 2, 900), 0);
    QCOMPARE(count.leftOut(), quint64{3});
    count.addShown(set("b", 2, 950), 0);
    QCOMPARE(count.leftOut(), quint64{3});
    QCOMPARE(count.sets(), quint64{6});
    QCOMPARE(count.generation(), quint64{950});
}

void tst_MirrorStatus::lagIsThatOfTheNewest()
{
    MirrorCount count;

    count.addShown(set("a", 1, 1, 5000), 5700);
    QCOMPARE(count.lag(), qint64{700});
    // The other clock is ahead.
    count.addShown(set("a", 1, 2, 6000), 5900);
    QCOMPARE(count.lag(), qint64{-100});
    count.addShown(set("a", 1, 3, std::numeric_limits<qint64>::min()), 0);
    QCOMPARE(count.lag(), std::numeric_limits<qint64>::min());
}

void tst_MirrorStatus::textsOfSamplesAreCutAndNeverReadBeyond()
{
    char text[sampleTextRoom];
    std::memset(text, 'x', sizeof text);

    setSampleText(text, QStringLiteral("plant"));
    QCOMPARE(sampleText(text), QStringLiteral("plant"));
    setSampleText(text, QString(300, QLatin1Char('y')));
    QCOMPARE(sampleText(text), QString(255, QLatin1Char('y')));
    std::memset(text, 'x', sizeof text);
    QCOMPARE(sampleText(text).size(), 256);
}

void tst_MirrorStatus::textsOfSamplesAreKnownByTheirBytes()
{
    char text[sampleTextRoom];
    std::memset(text, 'x', sizeof text);
    // None of these may be read beyond its room either.
    QVERIFY(isSampleText(text, QByteArray(256, 'x')));
    QVERIFY(!isSampleText(text, QByteArray(255, 'x')));
    QVERIFY(!isSampleText(text, QByteArray(257, 'x')));

    setSampleText(text, QStringLiteral("pl\u00e4nt"));
    QVERIFY(isSampleText(text, "pl\xc3\xa4nt"));
    QVERIFY(!isSampleText(text, "pl\xc3\xa4n"));
    QVERIFY(!isSampleText(text, "pl\xc3\xa4nts"));
    QVERIFY(!isSampleText(text, "pl\xc3\xa5nt"));
    QVERIFY(!isSampleText(text, QByteArray("pl\xc3\xa4nt\0x", 8)));
    QVERIFY(!isSampleText(text, QByteArray()));
    setSampleText(text, QString());
    QVERIFY(isSampleText(text, QByteArray()));
}

void tst_MirrorStatus::sourceIsToldWithItsRate()
{
    DomainStatus status;

    status.take(region, sourceName, source(1000, 7 * second));
    QVERIFY(only(status, "sources")[QStringLiteral("rate")].isNull());
    status.take(region, sourceName, source(1150, 8 * second));
    status.take(region, sourceName, source(1200, 9 * second));

    QCOMPARE(only(status, "sources"),
             (QJsonObject{{QStringLiteral("region"), region},
                          {QStringLiteral("source"), QStringLiteral("73").repeated(16)},
                          {QStringLiteral("host"), QStringLiteral("device")},
                          {QStringLiteral("state"), QStringLiteral("live")},
                          {QStringLiteral("generation"), 1200},
                          {QStringLiteral("rate"), 100.0},
                          {QStringLiteral("bytes"), 48}}));
}

void tst_MirrorStatus::numberBeyondThoseOfJsonIsNotNegative_data()
{
    QTest::addColumn<quint64>("number");
    QTest::addColumn<double>("shown");

    QTest::newRow("last with a sign") << 0x7fffffffffffffffULL << 9223372036854775807.0;
    QTest::newRow("first without") << 0x8000000000000000ULL << 9223372036854775808.0;
    QTest::newRow("largest") << 0xffffffffffffffffULL << 18446744073709551615.0;
}

void tst_MirrorStatus::numberBeyondThoseOfJsonIsNotNegative()
{
    QFETCH(quint64, number);
    DomainStatus status;
    status.take(region, sourceName, source(number, 0));
    DomainStatus::Receiver mirror = receiver(number, number, 0);
    mirror.generation = number;
    status.take(region, receiverName, mirror);

    const QJsonObject shown = only(status, "receivers");
    QTEST(only(status, "sources")[QLatin1String("generation")].toDouble(), "shown");
    QTEST(shown[QLatin1String("generation")].toDouble(), "shown");
    QTEST(shown[QLatin1String("sets")].toDouble(), "shown");
    QTEST(shown[QLatin1String("losses")].toDouble(), "shown");
}

void tst_MirrorStatus::regionMadeAnewBeginsANewRate()
{
    DomainStatus status;
    status.take(region, sourceName, source(1000, 1 * second));
    status.take(region, sourceName, source(1100, 2 * second));

    status.take(region, sourceName, source(5, 3 * second, 2));
    QVERIFY(only(status, "sources")[QStringLiteral("rate")].isNull());
    status.take(region, sourceName, source(15, 4 * second, 2));
    QCOMPARE(only(status, "sources")[QStringLiteral("rate")].toDouble(), 10.0);
}

void tst_MirrorStatus::clockThatGoesBackHasNoRate()
{
    DomainStatus status;
    status.take(region, sourceName, source(1, 5 * second));
    status.take(region, sourceName, source(9, 4 * second));

    QVERIFY(only(status, "sources")[QStringLiteral("rate")].isNull());
    status.take(region, sourceName, source(10, std::numeric_limits<qint64>::min()));
    QVERIFY(only(status, "sources")[QStringLiteral("rate")].isNull());
}

void tst_MirrorStatus::rateOfALongTimeIsThatOfItsEnd()
{
    const auto at = [](int number) { return second * number; };
    const auto rateOf = [](const DomainStatus &status, const char *kind) {
        return only(status, kind)[QStringLiteral("rate")].toDouble();
    };
    DomainStatus status;
    status.take(region, sourceName, source(0, at(0)));
    status.take(region, receiverName, receiver(0, 0, at(0)));
    status.take(region, sourceName, source(500, at(5)));
    status.take(region, receiverName, receiver(400, 0, at(5)));
    status.beginNextTime();
    QCOMPARE(rateOf(status, "sources"), 100.0);
    QCOMPARE(rateOf(status, "receivers"), 80.0);

    status.take(region, sourceName, source(500, at(10)));
    status.take(region, receiverName, receiver(400, 0, at(10)));
    QCOMPARE(rateOf(status, "sources"), 50.0);
    QCOMPARE(rateOf(status, "receivers"), 40.0);
    status.beginNextTime();
    QCOMPARE(rateOf(status, "sources"), 0.0);
    QCOMPARE(rateOf(status, "receivers"), 0.0);

    status.take(region, sourceName, source(1000, at(15)));
    QCOMPARE(rateOf(status, "sources"), 50.0);
    // A region that was made anew counts from its begin alone.
    status.take(region, sourceName, source(3, at(16), 2));
    status.beginNextTime();
    status.take(region, sourceName, source(13, at(17), 2));
    QCOMPARE(rateOf(status, "sources"), 10.0);
}

void tst_MirrorStatus::receiverIsToldWithItsLosses()
{
    DomainStatus status;

    status.take(region, receiverName, receiver(100, 5, 1 * second));
    status.take(region, receiverName, receiver(150, 7, 3 * second));

    QCOMPARE(only(status, "receivers"),
             (QJsonObject{{QStringLiteral("region"), region},
                          {QStringLiteral("receiver"), QStringLiteral("72").repeated(16)},
                          {QStringLiteral("host"), QStringLiteral("display")},
                          {QStringLiteral("mirror"), QStringLiteral("plantMirror")},
                          {QStringLiteral("source"), QStringLiteral("73").repeated(16)},
                          {QStringLiteral("generation"), 4711},
                          {QStringLiteral("rate"), 25.0},
                          {QStringLiteral("sets"), 150},
                          {QStringLiteral("losses"), 7},
                          {QStringLiteral("lag"), 1.5}}));
}

void tst_MirrorStatus::mirrorWithoutASourceIsTold()
{
    DomainStatus status;
    DomainStatus::Receiver alone = receiver(0, 0, second);
    alone.source.clear();

    status.take(region, receiverName, alone);

    QVERIFY(only(status, "receivers")[QStringLiteral("source")].isNull());
    QVERIFY(only(status, "receivers")[QStringLiteral("lag")].isNull());
    QCOMPARE(status.text(),
             QStringLiteral("region 'plant'\n"
                            "  receiver  display (72727272): mirror 'plantMirror' without a "
                            "source, 0 sets, 0 left out\n"));
}

void tst_MirrorStatus::whoHasGoneIsNotTold()
{
    DomainStatus status;
    status.take(region, sourceName, source(1, 0));
    status.take(region, receiverName, receiver(1, 0, 0));
    QVERIFY(!status.isEmpty());

    status.removeSource(region, receiverName);
    status.removeSource(region, sourceName);
    QVERIFY(!status.isEmpty());
    status.removeReceiver(region, receiverName);

    QVERIFY(status.isEmpty());
    QCOMPARE(status.text(), QString());
}

void tst_MirrorStatus::linesAreForPeople()
{
    DomainStatus status;
    status.take(region, sourceName, source(1000, 0));
    status.take(region, sourceName, source(1050, second));
    status.take(QStringLiteral("boiler"), sourceName, source(3, 0, 1, 1));
    status.take(region, receiverName, receiver(100, 5, 0));
    status.take(region, receiverName, receiver(149, 6, second));

    QCOMPARE(status.text(),
             QStringLiteral(
                 "region 'boiler'\n"
                 "  source    device (73737373): creator-gone, generation 3, no rate yet\n"
                 "region 'plant'\n"
                 "  source    device (73737373): live, generation 1050, 50.0 sets a second\n"
                 "  receiver  display (72727272): mirror 'plantMirror' of 73737373, generation "
                 "4711, 49.0 sets a second, 149 sets, 6 left out, lag 1.5 ms\n"));
}

void tst_MirrorStatus::namesFromTheNetworkDoNotReachTheTerminal()
{
    DomainStatus status;
    DomainStatus::Source hostile = source(1, 0, 1, 99);
    hostile.host = QStringLiteral("a\x1b[2J%1%2\n");

    status.take(QStringLiteral("b\r%3"), sourceName, hostile);

    QCOMPARE(status.text(), QStringLiteral("region 'b\uFFFD%3'\n"
                                           "  source    a\uFFFD[2J%1%2\uFFFD (73737373): unknown, "
                                           "generation 1, no rate yet\n"));
}

void tst_MirrorStatus::floodOfNamesIsBounded()
{
    DomainStatus status;

    for (int i = 0; i < 3000; ++i) {
        status.take(QString::number(i), sourceName, source(1, 0));
        status.take(QString::number(i), receiverName, receiver(1, 0, 0));
    }

    const QJsonObject all = QJsonDocument::fromJson(status.json()).object();
    QCOMPARE(all[QStringLiteral("sources")].toArray().size(), 1000);
    QCOMPARE(all[QStringLiteral("receivers")].toArray().size(), 1000);
}

QTEST_APPLESS_MAIN(tst_MirrorStatus)
#include "tst_MirrorStatus.moc"
