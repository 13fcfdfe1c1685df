#include "Companion/Exchange/SharedBytes_p.h"
#include "support/DoubleBuffer.h"
#include "support/SteppedChild.h"

#include <QtTest>

#include <functional>

namespace {

constexpr unsigned char formerByte = 0x11;
constexpr unsigned char newByte = 0xEE;

template <class Number>
bool isWhole(const unsigned char *address)
{
    const auto number = loadShared<Number>(address);
    Number former{};
    Number latest{};
    std::memset(&former, formerByte, sizeof former);
    std::memset(&latest, newByte, sizeof latest);
    return number == former || number == latest;
}

/// Calls @p check for each aligned number of its size in a range of bytes.
template <class Number>
bool areWhole(const unsigned char *start, std::size_t size)
{
    for (std::size_t i = 0; i + sizeof(Number) <= size; ++i) {
        if (SharedBytes::isAligned(start + i, sizeof(Number)) && !isWhole<Number>(start + i)) {
            return false;
        }
    }
    return true;
}

bool areAllWhole(const unsigned char *start, std::size_t size)
{
    return areWhole<quint64>(start, size) && areWhole<quint32>(start, size)
           && areWhole<quint16>(start, size);
}

/// Runs @p copy instruction by instruction and looks at the aligned numbers after each.
void checkSteps(const unsigned char *destination, std::size_t size,
                const std::function<void()> &copy)
{
    SteppedChild child(copy);
    if (!child.canBeTraced()) {
        QSKIP("needs ptrace", );
    }
    while (child.step()) {
        QVERIFY(areAllWhole(destination, size));
    }

    QVERIFY(child.hasEndedWell());
    QVERIFY(isFilledWith(destination, static_cast<quint32>(size), newByte));
}

using Copy = void (*)(unsigned char *, const unsigned char *, std::size_t);

} // namespace

Q_DECLARE_METATYPE(Copy)

/// The copy of a set, as a reader of single values sees it after each instruction.
class tst_CopySteps : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void numbersAlignedAtTheDestinationAreStoredWhole_data();
    void numbersAlignedAtTheDestinationAreStoredWhole();
    void catchingUpStoresAlignedNumbersWhole_data();
    void catchingUpStoresAlignedNumbersWhole();
};

void tst_CopySteps::numbersAlignedAtTheDestinationAreStoredWhole_data()
{
    QTest::addColumn<Copy>("copy");
    QTest::addColumn<std::size_t>("from");
    QTest::addColumn<std::size_t>("to");

    for (const std::size_t to : {0U, 1U, 6U}) {
        for (const std::size_t from : {0U, 1U, 4U, 7U}) {
            QTest::addRow("from %zu to %zu", from, to) << Copy(copyShared) << from << to;
            QTest::addRow("from %zu to %zu, of any processor", from, to)
                << Copy(SharedBytes::copyAligned) << from << to;
        }
    }
}

void tst_CopySteps::numbersAlignedAtTheDestinationAreStoredWhole()
{
    QFETCH(Copy, copy);
    QFETCH(std::size_t, from);
    QFETCH(std::size_t, to);
    constexpr std::size_t size = 91; // a block of pairs, single words, pieces
    const SharedMapping mapping(512);
    unsigned char *const source = mapping.start() + from;
    unsigned char *const destination = mapping.start() + 256 + to;
    std::memset(source, newByte, size);
    std::memset(destination, formerByte, size);

    checkSteps(destination, size, [&] { copy(destination, source, size); });
}

void tst_CopySteps::catchingUpStoresAlignedNumbersWhole_data()
{
    QTest::addColumn<quint32>("size");

    for (quint32 size = 80; size < 88; ++size) {
        QTest::addRow("buffers of %u bytes", size) << size;
    }
}

void tst_CopySteps::catchingUpStoresAlignedNumbersWhole()
{
    QFETCH(quint32, size);
    const DoubleBuffer buffer(size);
    const auto handler = buffer.create();
    // The write lock of the epoch to come copies from the second buffer into the first.
    buffer.management()->swapCount = 1;
    fillBuffer(buffer.second(), size, newByte);
    fillBuffer(buffer.first(), size, formerByte);

    checkSteps(buffer.first(), size, [&] { handler->lockForWrite(); });
}

QTEST_GUILESS_MAIN(tst_CopySteps)
#include "tst_CopySteps.moc"
