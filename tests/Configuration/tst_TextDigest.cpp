#include "Configuration/TextDigest_p.h"

#include <QRandomGenerator>
#include <QtEndian>
#include <QtTest>

namespace {

/// The bytes 0, 1, 2 ... as the vectors of the method's authors have them.
QByteArray countedBytes(int size)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i) {
        bytes.append(static_cast<char>(i));
    }
    return bytes;
}

QByteArray bytesOf(const TextDigest &digest)
{
    QByteArray bytes(16, '\0');
    qToLittleEndian(digest.low(), bytes.data());
    qToLittleEndian(digest.high(), bytes.data() + 8);
    return bytes.toHex();
}

TextDigest digestOf(const QByteArray &text)
{
    const QByteArray key = countedBytes(16);
    return {text,
            {qFromLittleEndian<quint64>(key.constData()),
             qFromLittleEndian<quint64>(key.constData() + 8)}};
}

} // namespace

class tst_TextDigest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isWhatTheMethodSays_data();
    void isWhatTheMethodSays();
    void equalTextsHaveOne();
    void everyBitCounts();
    void theSizeCounts();
    void anotherSecretGivesAnother();
};

void tst_TextDigest::isWhatTheMethodSays_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("0 bytes") << 0 << QByteArray("a3817f04ba25a8e66df67214c7550293");
    QTest::newRow("1 bytes") << 1 << QByteArray("da87c1d86b99af44347659119b22fc45");
    QTest::newRow("7 bytes") << 7 << QByteArray("a1f1ebbed8dbc153c0b84aa61ff08239");
    QTest::newRow("8 bytes") << 8 << QByteArray("3b62a9ba6258f5610f83e264f31497b4");
    QTest::newRow("9 bytes") << 9 << QByteArray("264499060ad9baabc47f8b02bb6d71ed");
    QTest::newRow("15 bytes") << 15 << QByteArray("5493e99933b0a8117e08ec0f97cfc3d9");
    QTest::newRow("16 bytes") << 16 << QByteArray("6ee2a4ca67b054bbfd3315bf85230577");
    QTest::newRow("63 bytes") << 63 << QByteArray("5150d1772f50834a503e069a973fbd7c");
}

void tst_TextDigest::isWhatTheMethodSays()
{
    QFETCH(int, size);
    QFETCH(QByteArray, expected);

    QCOMPARE(bytesOf(digestOf(countedBytes(size))), expected);
}

void tst_TextDigest::equalTextsHaveOne()
{
    for (int size = 0; size < 40; ++size) {
        const QByteArray text = countedBytes(size);
        const QByteArray copy(text.constData(), text.size());

        QVERIFY(TextDigest::of(text) == TextDigest::of(copy));
        QCOMPARE(qHash(TextDigest::of(text)), qHash(TextDigest::of(copy)));
    }
}

void tst_TextDigest::everyBitCounts()
{
    const QByteArray text = countedBytes(19);
    QList<QByteArray> digests{bytesOf(digestOf(text))};
    for (int bit = 0; bit < 8 * text.size(); ++bit) {
        QByteArray changed = text;
        changed[bit / 8] = static_cast<char>(changed.at(bit / 8) ^ (1 << (bit % 8)));
        digests.append(bytesOf(digestOf(changed)));
        QVERIFY(!(digestOf(changed) == digestOf(text)));
    }

    QCOMPARE(QSet<QByteArray>(digests.cbegin(), digests.cend()).size(), 8 * 19 + 1);
}

void tst_TextDigest::theSizeCounts()
{
    // Sizes that are equal in their lowest byte are told apart as well.
    QVERIFY(!(digestOf(QByteArray(8, '\0')) == digestOf(QByteArray(16, '\0'))));
    QVERIFY(!(digestOf(QByteArray()) == digestOf(QByteArray(1, '\0'))));
    QVERIFY(!(digestOf(QByteArray(264, '\0')) == digestOf(QByteArray(8, '\0'))));
}

void tst_TextDigest::anotherSecretGivesAnother()
{
    const QByteArray text("the same text");

    QVERIFY(!(TextDigest(text, {1, 2}) == TextDigest(text, {1, 3})));
    QVERIFY(!(TextDigest(text, {1, 2}) == TextDigest(text, {2, 2})));
}

QTEST_APPLESS_MAIN(tst_TextDigest)
#include "tst_TextDigest.moc"
