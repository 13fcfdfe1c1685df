#include "Companion/Exchange/SharedBytes_p.h"

#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

namespace {

enum WordEnumeration : qint32 { WordEnumerationZero = 0 };

const unsigned char guardByte = 0x5A;

using Bytes = std::array<unsigned char, 128>;

/// Bytes that all differ from each other and from the guard byte.
Bytes countingBytes()
{
    Bytes bytes{};
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<unsigned char>(0x80 + index);
    }
    return bytes;
}

Bytes guardBytes()
{
    Bytes bytes{};
    bytes.fill(guardByte);
    return bytes;
}

/// Loads a number at every offset up to 16 and compares its bytes.
template <class T>
void checkLoads()
{
    alignas(16) const Bytes bytes = countingBytes();
    for (std::size_t offset = 0; offset < 16; ++offset) {
        const T loaded = loadShared<T>(bytes.data() + offset);

        Bytes loadedBytes{};
        std::memcpy(loadedBytes.data(), &loaded, sizeof(T));
        QVERIFY2(std::equal(loadedBytes.begin(), loadedBytes.begin() + sizeof(T),
                            bytes.begin() + offset),
                 qPrintable(QStringLiteral("offset %1").arg(offset)));
    }
}

/// Stores a number at every offset up to 16 and compares all bytes, also those around it.
template <class T>
void checkStores()
{
    const Bytes source = countingBytes();
    T value{};
    std::memcpy(&value, source.data(), sizeof(T));
    for (std::size_t offset = 0; offset < 16; ++offset) {
        alignas(16) Bytes bytes = guardBytes();
        Bytes expected = guardBytes();
        std::copy_n(source.begin(), sizeof(T), expected.begin() + offset);

        storeShared(bytes.data() + offset, value);

        QVERIFY2(bytes == expected, qPrintable(QStringLiteral("offset %1").arg(offset)));
    }
}

template <std::size_t size>
void comparePieces(const Bytes &bytes, std::size_t offset)
{
    const unsigned char *const source = bytes.data() + offset;
    const auto word = SharedBytes::loadInPieces<size>(source);
    QCOMPARE(SharedBytes::loadAnywhere<size>(source), word);
    if constexpr (SharedBytes::isAnyAddressOneAccess) {
        QCOMPARE(SharedBytes::loadAtOnce<size>(source), word);
    }

    alignas(64) Bytes inPieces = guardBytes();
    SharedBytes::storeInPieces<size>(inPieces.data() + offset, word);
    alignas(64) Bytes anywhere = guardBytes();
    SharedBytes::storeAnywhere<size>(anywhere.data() + offset, word);
    QVERIFY(anywhere == inPieces);
}

} // namespace

class tst_SharedBytes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loadsEveryTypeAtEveryAlignment();
    void storesEveryTypeAtEveryAlignmentAndNothingAround();
    void quickWaysDoWhatPiecesDo();
    void quickCopyDoesWhatWordsDo();
    void signalBitsOfNotANumberSurvive();
    void truthIsStoredAsOne();
    void copiesAtEveryAlignmentAndNothingAround();
    void copyOfNothingTouchesNothing();
    void alignedNumberIsNeverTorn_data();
    void alignedNumberIsNeverTorn();
    void copiedAlignedNumberIsNeverTorn();
};

void tst_SharedBytes::loadsEveryTypeAtEveryAlignment()
{
    checkLoads<qint8>();
    checkLoads<quint8>();
    checkLoads<qint16>();
    checkLoads<quint16>();
    checkLoads<qint32>();
    checkLoads<quint32>();
    checkLoads<qint64>();
    checkLoads<quint64>();
    checkLoads<float>();
    checkLoads<double>();
    checkLoads<WordEnumeration>();
}

void tst_SharedBytes::storesEveryTypeAtEveryAlignmentAndNothingAround()
{
    checkStores<qint8>();
    checkStores<quint8>();
    checkStores<qint16>();
    checkStores<quint16>();
    checkStores<qint32>();
    checkStores<quint32>();
    checkStores<qint64>();
    checkStores<quint64>();
    checkStores<float>();
    checkStores<double>();
    checkStores<WordEnumeration>();
}

void tst_SharedBytes::quickWaysDoWhatPiecesDo()
{
    QRandomGenerator random(11);
    for (int round = 0; round < 100; ++round) {
        // Long enough for words that cross a line of the cache.
        alignas(64) Bytes bytes{};
        random.generate(bytes.begin(), bytes.end());
        for (std::size_t offset = 0; offset <= bytes.size() - 8; ++offset) {
            comparePieces<1>(bytes, offset);
            comparePieces<2>(bytes, offset);
            comparePieces<4>(bytes, offset);
            comparePieces<8>(bytes, offset);
        }
    }
}

void tst_SharedBytes::quickCopyDoesWhatWordsDo()
{
    QRandomGenerator random(12);
    std::vector<unsigned char> source(1024);
    random.generate(source.begin(), source.end());
    for (int round = 0; round < 2000; ++round) {
        const std::size_t from = random.bounded(64U);
        const std::size_t to = random.bounded(64U);
        const std::size_t size = random.bounded(900U);
        std::vector<unsigned char> inWords(source.size(), guardByte);
        std::vector<unsigned char> quickly = inWords;

        SharedBytes::copyAligned(inWords.data() + to, source.data() + from, size);
        copyShared(quickly.data() + to, source.data() + from, size);

        QCOMPARE(std::memcmp(inWords.data() + to, source.data() + from, size), 0);
        QVERIFY2(quickly == inWords,
                 qPrintable(QStringLiteral("from %1 to %2, %3 bytes").arg(from).arg(to).arg(size)));
    }
}

void tst_SharedBytes::signalBitsOfNotANumberSurvive()
{
    const quint64 pattern = Q_UINT64_C(0x7FF8000000000003);
    double number = 0;
    std::memcpy(&number, &pattern, sizeof(number));
    alignas(8) Bytes bytes = guardBytes();

    storeShared(bytes.data() + 3, number);

    QCOMPARE(loadShared<quint64>(bytes.data() + 3), pattern);
}

void tst_SharedBytes::truthIsStoredAsOne()
{
    Bytes bytes = guardBytes();

    storeShared(bytes.data(), true);
    storeShared(bytes.data() + 1, false);

    QCOMPARE(bytes[0], static_cast<unsigned char>(1));
    QCOMPARE(bytes[1], static_cast<unsigned char>(0));
    QCOMPARE(bytes[2], guardByte);
}

void tst_SharedBytes::copiesAtEveryAlignmentAndNothingAround()
{
    alignas(16) const Bytes source = countingBytes();
    for (std::size_t from = 0; from < 8; ++from) {
        for (std::size_t to = 0; to < 8; ++to) {
            for (std::size_t size = 0; size <= 40; ++size) {
                alignas(16) Bytes bytes = guardBytes();
                Bytes expected = guardBytes();
                std::copy_n(source.begin() + from, size, expected.begin() + to);

                copyShared(bytes.data() + to, source.data() + from, size);

                QVERIFY2(
                    bytes == expected,
                    qPrintable(
                        QStringLiteral("from %1 to %2, %3 bytes").arg(from).arg(to).arg(size)));
            }
        }
    }
}

void tst_SharedBytes::copyOfNothingTouchesNothing()
{
    Bytes bytes = guardBytes();

    copyShared(nullptr, nullptr, 0);
    copyShared(bytes.data() + 1, bytes.data() + 64, 0);

    QVERIFY(bytes == guardBytes());
}

void tst_SharedBytes::alignedNumberIsNeverTorn_data()
{
    QTest::addColumn<std::size_t>("offset");

    QTest::newRow("start") << std::size_t{0};
    QTest::newRow("next word") << std::size_t{8};
}

void tst_SharedBytes::alignedNumberIsNeverTorn()
{
    QFETCH(std::size_t, offset);
    alignas(16) Bytes bytes{};
    std::atomic<bool> isFinished = false;
    std::thread writer([&] {
        quint64 pattern = 0;
        while (!isFinished) {
            pattern = ~pattern;
            storeShared(bytes.data() + offset, pattern);
        }
    });

    int tornCount = 0;
    for (int round = 0; round < 100000; ++round) {
        const auto pattern = loadShared<quint64>(bytes.data() + offset);
        tornCount += pattern != 0 && pattern != ~Q_UINT64_C(0) ? 1 : 0;
    }
    isFinished = true;
    writer.join();

    QCOMPARE(tornCount, 0);
}

void tst_SharedBytes::copiedAlignedNumberIsNeverTorn()
{
    alignas(16) Bytes source{};
    alignas(16) Bytes destination{};
    std::atomic<bool> isFinished = false;
    std::thread writer([&] {
        quint64 pattern = 0;
        while (!isFinished) {
            pattern = ~pattern;
            storeShared(source.data() + 8, pattern);
        }
    });

    int tornCount = 0;
    for (int round = 0; round < 100000; ++round) {
        copyShared(destination.data() + 3, source.data() + 3, 20);
        const auto pattern = loadShared<quint64>(destination.data() + 8);
        tornCount += pattern != 0 && pattern != ~Q_UINT64_C(0) ? 1 : 0;
    }
    isFinished = true;
    writer.join();

    QCOMPARE(tornCount, 0);
}

QTEST_GUILESS_MAIN(tst_SharedBytes)
#include "tst_SharedBytes.moc"
