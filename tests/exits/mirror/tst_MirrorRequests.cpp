#include "mirror/RequestGate.h"
#include "mirror/RequestQueue.h"

#include <QtTest>

namespace {

using What = RequestGate::Verdict::What;

constexpr qint64 millisecond = 1000;

QVector<RequestedValue> values(const char *url, const char *text)
{
    return {{QString::fromLatin1(url), 0, QString::fromLatin1(text)}};
}

WriteRequest request(quint64 number, qint64 asked = 0, quint64 publisher = 1)
{
    WriteRequest request;
    request.publisher = publisher;
    request.number = number;
    request.asked = asked;
    request.values = values("a", "1");
    return request;
}

} // namespace

/// When a request is carried out, and when one is sent.
class tst_MirrorRequests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestIsCarriedOutOnce();
    void requestWithoutANumberIsRefused();
    void olderNumberIsLeftAlone();
    void refusalIsRepeatedAsItWas();
    void mirrorsAreKeptApart();
    void mirrorKeepsItsName();
    void requestIsInTime_data();
    void requestIsInTime();
    void requestWithoutOrWithTooManyValuesIsRefused_data();
    void requestWithoutOrWithTooManyValuesIsRefused();
    void soManyASecondAreCarriedOut();
    void mirrorThatKeepsItsDistanceIsNotOneOfTooMany();
    void oneOfTooManyMirrorsIsForgotten();

    void oneIsOnItsWayAtATime();
    void requestIsSaidAgainUntilItIsAnswered();
    void requestsKeepTheirDistance();
    void answerToAnotherNumberIsNone();
    void requestThatWaitsIsReplacedByTheNewest();
    void requestOnItsWayIsNotReplaced();
    void tooManyThatWaitAreRefused();
    void requestExpires();
    void pauseIsUntilTheNextStep();
};

void tst_MirrorRequests::requestIsCarriedOutOnce()
{
    RequestGate gate;

    QCOMPARE(gate.take(request(1), 0, 0).what, What::CarryOut);
    gate.note(request(1), {1, WriteResult::Written, {}});

    const auto again = gate.take(request(1), 0, 0);
    QCOMPARE(again.what, What::Repeat);
    QCOMPARE(again.answer.number, quint64{1});
    QCOMPARE(again.answer.result, WriteResult::Written);
    QCOMPARE(gate.take(request(2), 0, 0).what, What::CarryOut);
}

void tst_MirrorRequests::requestWithoutANumberIsRefused()
{
    RequestGate gate;

    for (int i = 0; i < 2; ++i) {
        const auto verdict = gate.take(request(0), 0, 0);
        QCOMPARE(verdict.what, What::Refuse);
        QCOMPARE(verdict.answer.result, WriteResult::WrongUse);
        QCOMPARE(verdict.answer.text, QStringLiteral("requests are counted from 1 up"));
    }
    QCOMPARE(gate.take(request(1), 0, 0).what, What::CarryOut);
}

void tst_MirrorRequests::olderNumberIsLeftAlone()
{
    RequestGate gate;
    gate.take(request(5), 0, 0);
    gate.note(request(5), {5, WriteResult::Written, {}});

    QCOMPARE(gate.take(request(4), 0, 0).what, What::LeaveAlone);
    QCOMPARE(gate.take(request(6), 0, 0).what, What::CarryOut);
}

void tst_MirrorRequests::refusalIsRepeatedAsItWas()
{
    RequestGate gate;
    gate.take(request(1), 0, 0);
    gate.note(request(1), {1, WriteResult::Refused, QStringLiteral("no")});

    const auto again = gate.take(request(1), 0, 0);

    QCOMPARE(again.what, What::Repeat);
    QCOMPARE(again.answer.result, WriteResult::Refused);
    QCOMPARE(again.answer.text, QStringLiteral("no"));
}

void tst_MirrorRequests::mirrorsAreKeptApart()
{
    RequestGate gate;
    gate.take(request(7, 0, 1), 0, 0);
    gate.note(request(7, 0, 1), {7, WriteResult::Written, {}});

    QCOMPARE(gate.take(request(7, 0, 2), 0, 0).what, What::CarryOut);
    QCOMPARE(gate.take(request(7, 0, 1), 0, 0).what, What::Repeat);
}

/// Each name would be one more that is answered, without an end.
void tst_MirrorRequests::mirrorKeepsItsName()
{
    RequestGate gate;
    WriteRequest first = request(1);
    first.receiver = QByteArray("first");
    QCOMPARE(gate.take(first, 0, 0).what, What::CarryOut);
    gate.note(first, {1, WriteResult::Written, {}});

    WriteRequest other = request(2);
    other.receiver = QByteArray("other");
    QCOMPARE(gate.take(other, 0, 0).what, What::LeaveAlone);
    other.publisher = 2;
    QCOMPARE(gate.take(other, 0, 0).what, What::CarryOut);
    first.number = 2;
    QCOMPARE(gate.take(first, 0, 0).what, What::CarryOut);
}

void tst_MirrorRequests::requestIsInTime_data()
{
    QTest::addColumn<qint64>("age");
    QTest::addColumn<bool>("isInTime");

    QTest::newRow("at once") << qint64{0} << true;
    QTest::newRow("just in time") << 3000 * millisecond << true;
    QTest::newRow("too late") << 3001 * millisecond << false;
    QTest::newRow("the clock was set back") << -3001 * millisecond << false;
    QTest::newRow("beyond all clocks") << std::numeric_limits<qint64>::max() << false;
}

void tst_MirrorRequests::requestIsInTime()
{
    QFETCH(qint64, age);
    QFETCH(bool, isInTime);
    RequestGate gate;

    const auto verdict = gate.take(request(1, -(age / 2)), age - age / 2, 0);

    QCOMPARE(verdict.what, isInTime ? What::CarryOut : What::Refuse);
    if (!isInTime) {
        QCOMPARE(verdict.answer.result, WriteResult::TimedOut);
        QVERIFY(verdict.answer.text.endsWith(
            QLatin1String("ms after it was asked for; 3000 ms are the most")));
    }
}

void tst_MirrorRequests::requestWithoutOrWithTooManyValuesIsRefused_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("isTaken");

    QTest::newRow("none") << 0 << false;
    QTest::newRow("one") << 1 << true;
    QTest::newRow("the most") << 1000 << true;
    QTest::newRow("one too many") << 1001 << false;
}

void tst_MirrorRequests::requestWithoutOrWithTooManyValuesIsRefused()
{
    QFETCH(int, count);
    QFETCH(bool, isTaken);
    WriteRequest asked = request(1);
    asked.values = QVector<RequestedValue>(count);
    RequestGate gate;

    const auto verdict = gate.take(asked, 0, 0);

    QCOMPARE(verdict.what, isTaken ? What::CarryOut : What::Refuse);
    if (!isTaken) {
        QCOMPARE(verdict.answer.result, WriteResult::WrongUse);
        QCOMPARE(verdict.answer.text,
                 QStringLiteral("a request holds 1 to 1000 values, not %1").arg(count));
    }
}

void tst_MirrorRequests::soManyASecondAreCarriedOut()
{
    RequestGate gate;
    quint64 number = 0;
    for (int i = 0; i < 100; ++i) {
        QCOMPARE(gate.take(request(++number), 0, 999).what, What::CarryOut);
    }

    const auto verdict = gate.take(request(++number), 0, 999);
    QCOMPARE(verdict.what, What::Refuse);
    QCOMPARE(verdict.answer.result, WriteResult::NoAccess);
    QCOMPARE(verdict.answer.text, QStringLiteral("more than 100 requests a second"));
    QCOMPARE(gate.take(request(1, 0, 2), 0, 999).what, What::CarryOut);
    QCOMPARE(gate.take(request(++number), 0, 999 + 999).what, What::Refuse);
    QCOMPARE(gate.take(request(++number), 0, 999 + 1000).what, What::CarryOut);
}

/// One is on its way at a time: the first may come as late as the second is sent, and the others at once.
void tst_MirrorRequests::mirrorThatKeepsItsDistanceIsNotOneOfTooMany()
{
    RequestQueue queue;
    RequestGate gate;
    qint64 ticks = 0;
    for (int i = 0; i < 500; ++i) {
        queue.add(values("a", "1"), ticks);
        ticks += *queue.pause(ticks);
        const auto *const next = queue.takeNext(ticks);
        QVERIFY(next != nullptr);
        const qint64 way = i == 0 ? WriteRequest::sm_interval - 1 : 0;
        QCOMPARE(gate.take(request(next->number), 0, ticks + way).what, What::CarryOut);
        gate.note(request(next->number), {next->number, WriteResult::Written, {}});
        QVERIFY(queue.answer(next->number));
    }
}

void tst_MirrorRequests::oneOfTooManyMirrorsIsForgotten()
{
    RequestGate gate;
    for (quint64 publisher = 1; publisher <= 101; ++publisher) {
        const WriteRequest asked = request(1, 0, publisher);
        gate.take(asked, 0, static_cast<qint64>(publisher));
        gate.note(asked, {1, WriteResult::Written, {}});
    }

    QCOMPARE(gate.take(request(1, 0, 101), 0, 200).what, What::Repeat);
    QCOMPARE(gate.take(request(1, 0, 2), 0, 200).what, What::Repeat);
    QCOMPARE(gate.take(request(1, 0, 1), 0, 200).what, What::CarryOut);
}

void tst_MirrorRequests::oneIsOnItsWayAtATime()
{
    RequestQueue queue;
    QVERIFY(queue.add(values("a", "1"), 0));
    QVERIFY(queue.add(values("b", "2"), 0));

    const auto *const first = queue.takeNext(0);
    QVERIFY(first != nullptr);
    QCOMPARE(first->number, quint64{1});
    QCOMPARE(first->values, values("a", "1"));
    QVERIFY(queue.takeNext(WriteRequest::sm_interval) == nullptr);

    QCOMPARE(queue.answer(1)->values, values("a", "1"));
    const auto *const second = queue.takeNext(WriteRequest::sm_interval);
    QVERIFY(second != nullptr);
    QCOMPARE(second->number, quint64{2});
    QCOMPARE(second->values, values("b", "2"));
}

void tst_MirrorRequests::requestIsSaidAgainUntilItIsAnswered()
{
    RequestQueue queue;
    queue.add(values("a", "1"), 0);
    QVERIFY(queue.takeNext(0) != nullptr);

    QVERIFY(queue.takeNext(499) == nullptr);
    const auto *const again = queue.takeNext(500);
    QVERIFY(again != nullptr);
    QCOMPARE(again->number, quint64{1});
    QCOMPARE(again->asked, qint64{0});
    QVERIFY(queue.takeNext(999) == nullptr);

    QVERIFY(queue.answer(1).has_value());
    QVERIFY(queue.takeNext(2000) == nullptr);
}

void tst_MirrorRequests::requestsKeepTheirDistance()
{
    RequestQueue queue;
    queue.add(values("a", "1"), 0);
    queue.takeNext(0);
    queue.answer(1);
    queue.add(values("a", "2"), 1);

    QVERIFY(queue.takeNext(10) == nullptr);
    QCOMPARE(queue.pause(10), std::optional<int>(1));
    QVERIFY(queue.takeNext(11) != nullptr);
}

void tst_MirrorRequests::answerToAnotherNumberIsNone()
{
    RequestQueue queue;
    queue.add(values("a", "1"), 0);

    QVERIFY(!queue.answer(0).has_value());
    queue.takeNext(0);
    QVERIFY(!queue.answer(2).has_value());
    QVERIFY(queue.answer(1).has_value());
    QVERIFY(!queue.answer(1).has_value());
}

void tst_MirrorRequests::requestThatWaitsIsReplacedByTheNewest()
{
    RequestQueue queue;
    queue.add(values("x", "0"), 0);
    queue.takeNext(0);
    queue.add(values("a", "1"), 1);
    queue.add(values("b", "2"), 2);
    queue.add(values("a", "3"), 3);

    QCOMPARE(queue.giveUp()->values, values("x", "0"));
    QCOMPARE(queue.giveUp()->values, values("b", "2"));
    QCOMPARE(queue.giveUp()->values, values("a", "3"));
    QVERIFY(!queue.giveUp().has_value());
}

void tst_MirrorRequests::requestOnItsWayIsNotReplaced()
{
    RequestQueue queue;
    queue.add(values("a", "1"), 0);
    queue.takeNext(0);
    queue.add(values("a", "2"), 1);

    QCOMPARE(queue.giveUp()->values, values("a", "1"));
    QCOMPARE(queue.giveUp()->values, values("a", "2"));
}

void tst_MirrorRequests::tooManyThatWaitAreRefused()
{
    RequestQueue queue;
    for (int i = 0; i < 16; ++i) {
        QVERIFY(queue.add(values(qPrintable(QString::number(i)), "1"), 0));
    }

    QVERIFY(!queue.add(values("one more", "1"), 0));
    QVERIFY(queue.add(values("7", "2"), 0));
}

void tst_MirrorRequests::requestExpires()
{
    RequestQueue queue;
    queue.add(values("a", "1"), 100);
    queue.takeNext(100);
    queue.add(values("b", "1"), 200);

    QVERIFY(!queue.takeExpired(3099).has_value());
    QCOMPARE(queue.takeExpired(3100)->values, values("a", "1"));
    QVERIFY(!queue.takeExpired(3100).has_value());
    QCOMPARE(queue.takeExpired(3200)->values, values("b", "1"));
    QVERIFY(!queue.takeExpired(9999).has_value());
}

void tst_MirrorRequests::pauseIsUntilTheNextStep()
{
    RequestQueue queue;
    QVERIFY(!queue.pause(0).has_value());
    queue.add(values("a", "1"), 0);
    QCOMPARE(queue.pause(0), std::optional<int>(0));

    queue.takeNext(0);
    QCOMPARE(queue.pause(100), std::optional<int>(400));
    for (int ticks = 500; ticks < 3000; ticks += 500) {
        queue.takeNext(ticks);
    }
    queue.takeNext(2999);

    QCOMPARE(queue.pause(2999), std::optional<int>(1));
}

QTEST_GUILESS_MAIN(tst_MirrorRequests)
#include "tst_MirrorRequests.moc"
