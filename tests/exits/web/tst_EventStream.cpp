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

double ageOf(const QByteArray &text)
{
    return dataOf(text, "set").value(QStringLiteral("age")).toDouble(-1);
}

QString reasonOf(const QByteArray &text)
{
    return dataOf(text, "gone").value(QStringLiteral("reason")).toString();
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
    void laterStreamIsToldTheAgeOfNow();
    void countAndTimeAreThoseOfTheValues();
    void regionThatCameBackMeanwhileIsTold();
    void reasonOfAnAbsenceIsTheOneOfNow();
    void singleBufferIsToldOfAtTheRate();
    void feedThatWasReplacedIsLetGo();
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

    const QByteArray rows = feed.rowsSince(0);

    QVERIFY(feed.rowsSince(0).constData() == rows.constData());
    QCOMPARE(feed.rowsSince(first), QByteArray("[]"));
}

void tst_EventStream::laterStreamIsToldTheAgeOfNow()
{
    const FollowedPlant plant;
    const HeldRegion region(plant.file);
    auto feed = std::make_shared<LiveFeed>(std::make_shared<RegionFollower>(plant.file));
    EventStream first(feed);
    const double toldFirst = ageOf(first.next());
    QTRY_VERIFY_WITH_TIMEOUT(feed->ageJson().toDouble() > toldFirst + 0.5, longestWait);
    const double before = feed->ageJson().toDouble();

    EventStream later(feed);

    QVERIFY(ageOf(later.next()) >= before);
}

void tst_EventStream::countAndTimeAreThoseOfTheValues()
{
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    // After the first set nothing is told by itself.
    auto feed = std::make_shared<LiveFeed>(
        std::make_shared<RegionFollower>(plant.file, longestWait));
    QSignalSpy news(&feed->region(), &RegionFollower::setPublished);
    QTRY_COMPARE_WITH_TIMEOUT(news.count(), 1, longestWait);
    EventStream stream(feed);
    const QJsonObject former = dataOf(stream.next(), "set");
    QTRY_VERIFY_WITH_TIMEOUT(feed->ageJson().toDouble() > 0.1, longestWait);
    QVERIFY(region.publish(plant.speed, validValue(1.5)));

    // Somebody asks for the values meanwhile.
    QVERIFY(feed->takeSet());

    const QJsonObject asked = QJsonDocument::fromJson(feed->valuesJson()).object();
    QCOMPARE(asked.value(QStringLiteral("swaps")).toInt(), 2);
    QVERIFY(asked.value(QStringLiteral("time")) != former.value(QStringLiteral("time")));
    EventStream later(feed);
    const QByteArray text = later.next();
    const QJsonObject told = dataOf(text, "set");
    QCOMPARE(valuesOf(text), QByteArray("[[0,null,3],[1,null,3]]"));
    QCOMPARE(told.value(QStringLiteral("swaps")).toInt(), 1);
    QCOMPARE(told.value(QStringLiteral("time")), former.value(QStringLiteral("time")));
    QVERIFY(ageOf(text) > 0.1);
}

void tst_EventStream::reasonOfAnAbsenceIsTheOneOfNow()
{
    const FollowedPlant plant;
    auto feed = std::make_shared<LiveFeed>(std::make_shared<RegionFollower>(plant.file));
    EventStream stream(feed);
    QVERIFY(reasonOf(stream.next()).startsWith(QStringLiteral("no region")));
    ToolDescription other;
    other.setRoot(QStringLiteral("keyProcessDataMemory"), plant.key());
    other.add(plant.speed, QStringLiteral("double"), ToolDescription::Metadata::ErrorState, 8);
    const HeldRegion region(other.write());
    const QString reason = QStringLiteral("region '%1' was made from another description than %2")
                               .arg(plant.key(), plant.file);

    QTRY_VERIFY_WITH_TIMEOUT(feed->absence().startsWith(reason), longestWait);

    const QByteArray text = stream.next();
    QCOMPARE(eventsIn(text), QStringList(QStringLiteral("gone")));
    QVERIFY(reasonOf(text).startsWith(reason));
    QCOMPARE(stream.next(), QByteArray());
    EventStream later(feed);
    QVERIFY(reasonOf(later.next()).startsWith(reason));
}

void tst_EventStream::singleBufferIsToldOfAtTheRate()
{
    FollowedPlant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), false);
    const QString file = plant.description().write();
    HeldRegion region(file);
    constexpr int interval = 50;
    auto feed = std::make_shared<LiveFeed>(std::make_shared<RegionFollower>(file, interval));
    EventStream stream(feed);
    stream.next();
    QSignalSpy looks(&feed->region(), &RegionFollower::setPublished);
    QTimer atTheRate;
    const QSignalSpy beats(&atTheRate, &QTimer::timeout);
    atTheRate.start(interval);
    QElapsedTimer timer;
    timer.start();
    QTRY_VERIFY_WITH_TIMEOUT(looks.count() >= 20, longestWait);
    const qint64 taken = timer.elapsed();
    // Both wait for the same loop, however seldom that gets a processor.
    QVERIFY(beats.count() < 10 * looks.count());

    QVERIFY(region.write(plant.speed, validValue(2.5)));

    QByteArray text;
    QVERIFY(QTest::qWaitFor(
        [&] {
            text = stream.next();
            return !text.isEmpty();
        },
        longestWait));
    QCOMPARE(valuesOf(text), QByteArray("[[0,2.5,0]]"));
    QCOMPARE(dataOf(text, "set").value(QStringLiteral("swaps")), QJsonValue(QJsonValue::Null));
    QVERIFY(taken >= (looks.count() - 1) * interval / 2);
    // Nothing is told of a set in which nothing has changed.
    const int sofar = looks.count();
    QTRY_VERIFY_WITH_TIMEOUT(looks.count() >= sofar + 3, longestWait);
    QCOMPARE(stream.next(), QByteArray());
}

void tst_EventStream::feedThatWasReplacedIsLetGo()
{
    const FollowedPlant plant;
    const HeldRegion region(plant.file);
    auto feed = std::make_shared<LiveFeed>(std::make_shared<RegionFollower>(plant.file));
    const std::weak_ptr<LiveFeed> watched = feed;
    EventStream stopped(feed);
    QVERIFY(!stopped.next().isEmpty());

    feed.reset();

    QVERIFY(watched.expired());
    QCOMPARE(stopped.next(), QByteArray());
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
