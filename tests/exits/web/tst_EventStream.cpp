#include "FollowedPlant.h"
#include "web/EventStream.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

namespace {

/// Name and data, a line each, of the events in @p text.
QStringList eventsIn(const QByteArray &text)
{
    QStringList events;
    for (const auto &event : text.split('\n')) {
        if (event.startsWith("event: ")) {
            events.append(QString::fromUtf8(event.mid(7)));
        }
    }
    return events;
}

QJsonObject dataOf(const QByteArray &text, const QByteArray &name)
{
    const QByteArray head = "event: " + name + "\ndata: ";
    const int begin = text.lastIndexOf(head) + head.size();
    return QJsonDocument::fromJson(text.mid(begin, text.indexOf('\n', begin) - begin)).object();
}

QByteArray valuesOf(const QByteArray &text)
{
    return QJsonDocument(dataOf(text, "set").value(QStringLiteral("values")).toArray())
        .toJson(QJsonDocument::Compact);
}

} // namespace

/// What streams are told of a region, and what is left out for those that do not keep up.
class tst_EventStream : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ServiceLog::start(QStringLiteral("tst_EventStream")); }
    void firstSetIsWholeAndLaterOnesAreChanges();
    void streamThatDoesNotReadGetsTheNewestOnce();
    void streamsThatKeepUpShareOneText();
    void regionThatCameBackMeanwhileIsTold();
    void withoutNewsThereIsNothing();

private:
    /// Until @p stream has told of the set of generation @p swaps, the last of it in @p text.
    static bool hasHeard(EventStream &stream, QByteArray &text, int swaps);
};

bool tst_EventStream::hasHeard(EventStream &stream, QByteArray &text, int swaps)
{
    return QTest::qWaitFor(
        [&] {
            const QByteArray next = stream.next();
            text = next.isEmpty() ? text : next;
            return dataOf(text, "set").value(QStringLiteral("swaps")).toInt() == swaps;
        },
        longestWait);
}

void tst_EventStream::firstSetIsWholeAndLaterOnesAreChanges()
{
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    auto feed = std::make_shared<LiveFeed>(std::make_shared<RegionFollower>(plant.file));
    EventStream stream(feed);

    QByteArray text = stream.next();
    QCOMPARE(eventsIn(text), QStringList({QStringLiteral("hello"), QStringLiteral("set")}));
    QCOMPARE(dataOf(text, "set").value(QStringLiteral("full")), QJsonValue(true));
    QCOMPARE(valuesOf(text), QByteArray("[[0,null,3],[1,null,3]]"));

    QVERIFY(region.publish(plant.speed, validValue(1.5)));
    QVERIFY(hasHeard(stream, text, 2));
    QCOMPARE(dataOf(text, "set").value(QStringLiteral("full")), QJsonValue(false));
    QCOMPARE(valuesOf(text), QByteArray("[[0,1.5,0]]"));
}

void tst_EventStream::streamThatDoesNotReadGetsTheNewestOnce()
{
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    auto feed = std::make_shared<LiveFeed>(std::make_shared<RegionFollower>(plant.file));
    EventStream quick(feed);
    EventStream stopped(feed);
    quick.next();
    stopped.next();

    QByteArray text;
    for (int i = 1; i <= 5; ++i) {
        QVERIFY(region.publish(plant.speed, validValue(double(i))));
        QVERIFY(hasHeard(quick, text, i + 1));
        QCOMPARE(valuesOf(text), QStringLiteral("[[0,%1,0]]").arg(i).toUtf8());
    }
    QVERIFY(region.publish(plant.name, validValue(QStringLiteral("x"))));
    QVERIFY(hasHeard(quick, text, 7));

    QCOMPARE(valuesOf(text), QByteArray("[[1,\"x\",0]]"));
    const QByteArray late = stopped.next();
    QCOMPARE(eventsIn(late), QStringList(QStringLiteral("set")));
    QCOMPARE(valuesOf(late), QByteArray("[[0,5,0],[1,\"x\",0]]"));
    QCOMPARE(stopped.next(), QByteArray());
}

void tst_EventStream::streamsThatKeepUpShareOneText()
{
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    LiveFeed feed(std::make_shared<RegionFollower>(plant.file));
    const quint64 first = feed.newest();
    QVERIFY(first > 0);

    const QByteArray text = feed.setSince(0);

    QVERIFY(feed.setSince(0).constData() == text.constData());
    QVERIFY(feed.setSince(first) != text);
}

void tst_EventStream::regionThatCameBackMeanwhileIsTold()
{
    const FollowedPlant plant;
    auto feed = std::make_shared<LiveFeed>(std::make_shared<RegionFollower>(plant.file));
    EventStream stream(feed);
    QCOMPARE(eventsIn(stream.next()),
             QStringList({QStringLiteral("hello"), QStringLiteral("gone")}));
    {
        HeldRegion region(plant.file);
        QTRY_VERIFY_WITH_TIMEOUT(feed->isUp(), longestWait);
        QCOMPARE(eventsIn(stream.next()),
                 QStringList({QStringLiteral("back"), QStringLiteral("set")}));
    }
    QTRY_VERIFY_WITH_TIMEOUT(!feed->isUp(), longestWait);
    const HeldRegion again(plant.file);
    QTRY_VERIFY_WITH_TIMEOUT(feed->isUp(), longestWait);

    const QByteArray text = stream.next();

    QCOMPARE(eventsIn(text),
             QStringList({QStringLiteral("gone"), QStringLiteral("back"), QStringLiteral("set")}));
    QVERIFY(dataOf(text, "gone").value(QStringLiteral("reason")).toString().contains(plant.key()));
    QCOMPARE(dataOf(text, "set").value(QStringLiteral("full")), QJsonValue(true));
}

void tst_EventStream::withoutNewsThereIsNothing()
{
    const FollowedPlant plant;
    const HeldRegion region(plant.file);
    auto feed = std::make_shared<LiveFeed>(std::make_shared<RegionFollower>(plant.file));
    EventStream stream(feed);
    stream.next();

    // The signal of the first set comes behind it.
    QSignalSpy news(feed.get(), &LiveFeed::newsToTell);
    QTRY_VERIFY_WITH_TIMEOUT(news.count() > 0, longestWait);

    QCOMPARE(stream.next(), QByteArray());
}

QTEST_GUILESS_MAIN(tst_EventStream)
#include "tst_EventStream.moc"
