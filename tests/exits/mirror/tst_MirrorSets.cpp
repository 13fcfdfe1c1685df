#include "mirror/ByteOrder.h"
#include "mirror/SlotLayout.h"
#include "mirror/SourceGate.h"

#include <QtTest>

namespace {

LeafSlot slot(const char *url, const char *type, quint32 offset, quint32 size, quint32 metadata = 4)
{
    return {QString::fromLatin1(url), QString::fromLatin1(type), offset, size, size, metadata, 0};
}

SlotLayout layoutOf(const QVector<LeafSlot> &leaves, quint32 size)
{
    SlotLayout layout;
    layout.leaves = leaves;
    layout.bufferSize = size;
    return layout;
}

QByteArray turned(const SlotLayout &layout, const char *hex)
{
    QByteArray bytes = QByteArray::fromHex(hex);
    ByteOrder(layout).turn(reinterpret_cast<unsigned char *>(bytes.data()));
    return bytes.toHex(' ');
}

constexpr quint64 fingerprint = 0x1234;
constexpr quint32 bufferSize = 4;

ReceivedSet live(quint32 attachment, quint64 generation)
{
    static const unsigned char bytes[bufferSize] = {};
    ReceivedSet set;
    set.source = "first";
    set.publisher = 7;
    set.attachment = attachment;
    set.generation = generation;
    set.fingerprint = fingerprint;
    set.byteOrder = 1;
    set.bytes = bytes;
    set.size = bufferSize;
    return set;
}

ReceivedSet gone(quint32 attachment, quint64 generation)
{
    ReceivedSet set = live(attachment, generation);
    set.state = static_cast<quint8>(SourceState::CreatorGone);
    set.bytes = nullptr;
    set.size = 0;
    return set;
}

} // namespace

using Answer = SourceGate::Answer;
Q_DECLARE_METATYPE(ReceivedSet)

/// What a mirror makes of a set, without the engine that brings it.
class tst_MirrorSets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyTypeIsTurnedByItsWidth_data();
    void everyTypeIsTurnedByItsWidth();
    void sharedErrorStateIsTurnedOnce();
    void whatReachesOutOfTheBufferStays();
    void turningTwiceGivesTheSame();
    void slotsWithoutErrorStateAreTold();
    void firstDifferenceIsTheOneThatLiesFirst();
    void missingAndAdditionalLeavesAreDifferences();
    void equalLayoutsHaveNoDifference();
    void setsAreShownOnceAndNeverAnOlderOne();
    void regionThatWasMadeAnewBeginsAgain();
    void secondSourceIsRefusedUntilTheFirstHasGone();
    void sameNameFromAnotherWriterIsAnotherSource();
    void setIsShownAgainAfterItsSourceWasInTrouble();
    void setThatCouldNotBeShownIsShownWhenItComesAgain();
    void otherLayoutIsRefused();
    void contradictionsAreRefused_data();
    void contradictionsAreRefused();
};

void tst_MirrorSets::everyTypeIsTurnedByItsWidth_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("size");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");

    const auto row = [](const char *type, quint32 size, const char *before, const char *after) {
        QTest::newRow(type) << QString::fromLatin1(type) << size << QByteArray(before)
                            << QByteArray(after);
    };
    row("int64", 8, "0102030405060708 09000000", "08 07 06 05 04 03 02 01 00 00 00 09");
    row("uint64", 8, "0102030405060708 01020304", "08 07 06 05 04 03 02 01 04 03 02 01");
    row("double", 8, "0102030405060708 09000000", "08 07 06 05 04 03 02 01 00 00 00 09");
    row("float", 4, "01020304 09000000", "04 03 02 01 00 00 00 09");
    row("int32", 4, "01020304 09000000", "04 03 02 01 00 00 00 09");
    row("int16", 2, "0102 09000000", "02 01 00 00 00 09");
    row("uint8", 1, "01 09000000", "01 00 00 00 09");
    row("boolean", 1, "01 09000000", "01 00 00 00 09");
    row("bit", 1, "81 09000000", "81 00 00 00 09");
    row("selector", 4, "01020304 09000000", "04 03 02 01 00 00 00 09");
    row("string", 5, "0102 0304 05 09000000", "02 01 04 03 05 00 00 00 09");
    row("nothing known", 4, "01020304 09000000", "01 02 03 04 00 00 00 09");
}

void tst_MirrorSets::everyTypeIsTurnedByItsWidth()
{
    QFETCH(QString, type);
    QFETCH(quint32, size);
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);

    const auto layout = layoutOf({slot("a", type.toLatin1(), 0, size)}, size + 4);

    QCOMPARE(turned(layout, before), after);
}

void tst_MirrorSets::sharedErrorStateIsTurnedOnce()
{
    LeafSlot low = slot("low", "bit", 0, 1);
    low.mask = 1;
    LeafSlot high = slot("high", "bit", 0, 1);
    high.mask = 2;

    QCOMPARE(turned(layoutOf({low, high}, 5), "03 09000000"), QByteArray("03 00 00 00 09"));
}

void tst_MirrorSets::whatReachesOutOfTheBufferStays()
{
    QCOMPARE(turned(layoutOf({slot("a", "int64", 0, 8, 0)}, 4), "01020304"),
             QByteArray("01 02 03 04"));
    QCOMPARE(turned(layoutOf({slot("a", "int32", 0, 4)}, 6), "01020304 0506"),
             QByteArray("04 03 02 01 05 06"));
    QCOMPARE(turned(layoutOf({slot("a", "int32", 0xFFFFFFFE, 4)}, 6), "01020304 0506"),
             QByteArray("01 02 03 04 05 06"));
}

void tst_MirrorSets::turningTwiceGivesTheSame()
{
    const auto layout = layoutOf({slot("a", "int64", 0, 8), slot("b", "string", 12, 4)}, 20);
    QByteArray bytes = QByteArray::fromHex("0102030405060708 09000000 41004200 03000000");
    const QByteArray former = bytes;
    const ByteOrder order(layout);

    order.turn(reinterpret_cast<unsigned char *>(bytes.data()));
    QVERIFY(bytes != former);
    order.turn(reinterpret_cast<unsigned char *>(bytes.data()));

    QCOMPARE(bytes, former);
}

void tst_MirrorSets::slotsWithoutErrorStateAreTold()
{
    const auto layout = layoutOf({slot("a", "float", 0, 4, 0), slot("b", "double", 4, 8, 0),
                                  slot("c", "int32", 12, 4, 0), slot("d", "int32", 16, 4, 4),
                                  slot("e", "string", 24, 4, 0)},
                                 28);

    QCOMPARE(layout.withoutState(),
             (QStringList{QStringLiteral("b"), QStringLiteral("c"), QStringLiteral("e")}));
}

void tst_MirrorSets::firstDifferenceIsTheOneThatLiesFirst()
{
    const auto own = layoutOf({slot("a", "int32", 0, 4), slot("b", "int32", 8, 4)}, 16);
    const auto other = layoutOf({slot("a", "int32", 0, 4), slot("b", "float", 8, 4)}, 16);

    QCOMPARE(own.firstDifference(other),
             QStringLiteral("the source has 'b', type float at offset 8, 4 bytes, error state 4 "
                            "behind, mask 0; here it is 'b', type int32 at offset 8, 4 bytes, "
                            "error state 4 behind, mask 0"));
}

void tst_MirrorSets::missingAndAdditionalLeavesAreDifferences()
{
    const auto one = layoutOf({slot("a", "int32", 0, 4)}, 16);
    const auto two = layoutOf({slot("a", "int32", 0, 4), slot("b", "int32", 8, 4, 0)}, 16);

    QCOMPARE(one.firstDifference(two),
             QStringLiteral("only the source has 'b', type int32 at offset 8, 4 bytes, error state "
                            "none, mask 0"));
    QCOMPARE(two.firstDifference(one),
             QStringLiteral("the source has no 'b', type int32 at offset 8, 4 bytes, error state "
                            "none, mask 0"));
}

void tst_MirrorSets::equalLayoutsHaveNoDifference()
{
    const auto layout = layoutOf({slot("a", "int32", 0, 4)}, 16);

    QCOMPARE(layout.firstDifference(layout), QString());
    QCOMPARE(SlotLayout().firstDifference(SlotLayout()), QString());
}

void tst_MirrorSets::setsAreShownOnceAndNeverAnOlderOne()
{
    SourceGate gate(fingerprint, bufferSize);

    QVERIFY(!gate.hasSource() && !gate.hadSource());
    QVERIFY(gate.take(live(1, 5)) == Answer::Show);
    QVERIFY(gate.hasSource() && gate.hadSource());
    QVERIFY(gate.take(live(1, 5)) == Answer::Keep);
    QVERIFY(gate.take(live(1, 4)) == Answer::Keep);
    QVERIFY(gate.take(live(1, 6)) == Answer::Show);
    QVERIFY(gate.take(live(1, 5)) == Answer::Keep);
}

void tst_MirrorSets::regionThatWasMadeAnewBeginsAgain()
{
    SourceGate gate(fingerprint, bufferSize);
    gate.take(live(1, 900));

    QVERIFY(gate.take(live(2, 1)) == Answer::Show);
    QVERIFY(gate.take(live(1, 901)) == Answer::Keep);
}

void tst_MirrorSets::secondSourceIsRefusedUntilTheFirstHasGone()
{
    SourceGate gate(fingerprint, bufferSize);
    ReceivedSet second = live(1, 9);
    second.source = "second";
    gate.take(live(1, 5));

    QVERIFY(gate.take(second) == Answer::OtherSource);
    QVERIFY(!gate.release("second"));
    QVERIFY(gate.take(live(1, 6)) == Answer::Show);
    QVERIFY(gate.release("first"));
    QVERIFY(gate.take(second) == Answer::Show);
    QVERIFY(gate.take(live(1, 7)) == Answer::OtherSource);
}

void tst_MirrorSets::sameNameFromAnotherWriterIsAnotherSource()
{
    SourceGate gate(fingerprint, bufferSize);
    ReceivedSet pretender = live(1, 6);
    pretender.publisher = 8;
    gate.take(live(1, 5));

    QVERIFY(gate.take(pretender) == Answer::OtherSource);
}

void tst_MirrorSets::setIsShownAgainAfterItsSourceWasInTrouble()
{
    SourceGate gate(fingerprint, bufferSize);
    gate.take(live(1, 5));

    QVERIFY(gate.take(gone(1, 5)) == Answer::Fail);
    QVERIFY(gate.hasSource());
    QVERIFY(gate.take(live(1, 5)) == Answer::Show);
    gate.release();
    QVERIFY(gate.take(live(1, 5)) == Answer::Show);
}

void tst_MirrorSets::setThatCouldNotBeShownIsShownWhenItComesAgain()
{
    SourceGate gate(fingerprint, bufferSize);
    gate.noteUnshown();
    QVERIFY(!gate.hasSource());
    gate.take(live(1, 5));
    QVERIFY(gate.take(live(1, 5)) == Answer::Keep);

    gate.noteUnshown();

    QVERIFY(gate.take(live(1, 4)) == Answer::Keep);
    QVERIFY(gate.take(live(1, 5)) == Answer::Show);
    QVERIFY(gate.take(live(1, 5)) == Answer::Keep);
}

void tst_MirrorSets::otherLayoutIsRefused()
{
    SourceGate gate(fingerprint, bufferSize);
    ReceivedSet other = live(1, 5);
    other.fingerprint = fingerprint + 1;

    QVERIFY(gate.take(other) == Answer::OtherLayout);
    QVERIFY(!gate.hadSource());
    gate.take(live(1, 5));
    QVERIFY(gate.take(other) == Answer::OtherLayout);
    QVERIFY(gate.take(live(1, 6)) == Answer::Show);
}

void tst_MirrorSets::contradictionsAreRefused_data()
{
    QTest::addColumn<ReceivedSet>("set");
    QTest::addColumn<QString>("problem");

    ReceivedSet set = live(1, 5);
    set.size = bufferSize - 1;
    QTest::newRow("one byte too few") << set << QStringLiteral("it has 3 bytes, not 4");
    set.size = bufferSize + 1;
    QTest::newRow("one byte too many") << set << QStringLiteral("it has 5 bytes, not 4");
    set.size = 0;
    QTest::newRow("nothing") << set << QStringLiteral("it has 0 bytes, not 4");
    set = gone(1, 5);
    set.size = bufferSize;
    QTest::newRow("bytes of nothing") << set << QStringLiteral("it has 4 bytes, not 0");
    set = live(1, 5);
    set.byteOrder = 0;
    QTest::newRow("no byte order") << set << QStringLiteral("its byte order is 0");
    set.byteOrder = 3;
    QTest::newRow("byte order that is none") << set << QStringLiteral("its byte order is 3");
    set = live(1, 5);
    set.state = 4;
    QTest::newRow("status that is none") << set << QStringLiteral("its status is 4");
}

void tst_MirrorSets::contradictionsAreRefused()
{
    QFETCH(ReceivedSet, set);
    QFETCH(QString, problem);
    SourceGate gate(fingerprint, bufferSize);

    QVERIFY(gate.take(set) == Answer::NotASet);
    QCOMPARE(gate.problem(), problem);
    QVERIFY(!gate.hasSource());
    gate.take(live(1, 4));
    QVERIFY(gate.take(set) == Answer::NotASet);
    QVERIFY(gate.take(live(1, 5)) == Answer::Show);
}

QTEST_APPLESS_MAIN(tst_MirrorSets)
#include "tst_MirrorSets.moc"
