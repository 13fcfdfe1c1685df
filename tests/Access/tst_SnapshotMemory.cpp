#include "Access/NumberRegion.h"
#include "Access/ProcessDataSnapshot.h"
#include "ProcessDataManagement/ManagerAccess_p.h"
#include "support/DoubleBuffer.h"
#include "support/LogCapture.h"
#include "support/SingleBuffer.h"

#include <QtTest>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include <malloc.h>

#if defined(__SANITIZE_THREAD__)
# define HEAP_OF_A_SANITIZER
#elif defined(__has_feature)
# if __has_feature(thread_sanitizer)
#  define HEAP_OF_A_SANITIZER
# endif
#endif

using namespace ProcessDataDefinitions;

namespace {

/// For how many bytes there is no room; 0: for all there is.
std::size_t refusedSize = 0;

/// Keeps the block of the heap in which an object lies when that is given back.
class KeptBlock
{
public:
    explicit KeptBlock(const void *object) { wanted = reinterpret_cast<std::uintptr_t>(object); }
    ~KeptBlock()
    {
        wanted = 0;
        std::free(std::exchange(kept, nullptr));
    }

    static bool isKept() { return kept != nullptr; }
    static bool keep(void *block)
    {
        const auto begin = reinterpret_cast<std::uintptr_t>(block);
        if (isKept() || begin > wanted || wanted >= begin + malloc_usable_size(block)) {
            return false;
        }
        kept = block;
        return true;
    }

private:
    Q_DISABLE_COPY(KeptBlock)

    static std::uintptr_t wanted;
    static void *kept;
};

std::uintptr_t KeptBlock::wanted = 0;
void *KeptBlock::kept = nullptr;

} // namespace

#ifdef HEAP_OF_A_SANITIZER
constexpr bool isHeapOurs = false; // That sanitizer has operators of its own.
#else
constexpr bool isHeapOurs = true;

// In the place of those of the C++ library.
void *operator new(std::size_t size)
{
    const bool isRefused = size == refusedSize && size != 0;
    void *const block = isRefused ? nullptr : std::malloc(std::max(size, std::size_t{1}));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void *block) noexcept
{
    if (!KeptBlock::keep(block)) {
        std::free(block);
    }
}

void operator delete(void *block, std::size_t /*size*/) noexcept
{
    operator delete(block);
}
#endif

/// What becomes of a snapshot where the heap has no room, or gives an address a second time.
class tst_SnapshotMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void leafBehindALaterDoubleBufferAtTheAddressIsRefused();
    void leafBehindALaterSingleBufferAtTheAddressIsRefused();
    void withoutRoomNothingIsTaken();
};

/// The heap gives the address of what has ended to what comes next.
template <class Make>
void leafOfALaterHandlerIsRefused(bool hasDoubleBuffer, const Make &makeAt)
{
    if (!isHeapOurs) {
        QSKIP("needs operators of its own for the heap", );
    }
    const QString url = QStringLiteral("number");
    ProcessDescription description(64, hasDoubleBuffer);
    description.leaves.insert(url, int32Slot(0));
    auto former = std::make_unique<LiveRegion>(description);
    const BufferHandlerInterface *const handler = ManagerAccess::handler(former->manager);
    void *const place = const_cast<void *>(dynamic_cast<const void *>(handler));
    const KeptBlock block(place);
    ProcessDataSnapshot snapshot;
    QVERIFY(snapshot.take(former->manager));
    former.reset();
    QVERIFY(KeptBlock::isKept());

    const auto root = description.parse();
    const auto leaf = root->getLeafProcessDataValue(url);
    auto *const later = makeAt(place);
    leaf->setBufferHandlerInterface(later, true);
    const bool isSameAddress = later == handler;
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    const bool isDecoded = snapshot.getValue(*leaf, value);
    std::destroy_at(later);

    QVERIFY(isSameAddress);
    QVERIFY(!isDecoded);
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
}

void tst_SnapshotMemory::leafBehindALaterDoubleBufferAtTheAddressIsRefused()
{
    const DoubleBuffer buffer;
    leafOfALaterHandlerIsRefused(true, [&buffer](void *place) {
        return new (place) PingPongBufferHandler(
            buffer.management(), buffer.first(), buffer.second(),
            SystemVSemaphoreBaseClass::CreationTypeCreate, buffer.size(), buffer.semaphores.key());
    });
}

void tst_SnapshotMemory::leafBehindALaterSingleBufferAtTheAddressIsRefused()
{
    const SingleBuffer buffer;
    leafOfALaterHandlerIsRefused(false, [&buffer](void *place) {
        return new (place)
            SingleBufferHandler(buffer.start(), SystemVSemaphoreBaseClass::CreationTypeCreate,
                                buffer.size(), buffer.semaphores.key());
    });
}

void tst_SnapshotMemory::withoutRoomNothingIsTaken()
{
    if (!isHeapOurs) {
        QSKIP("needs operators of its own for the heap", );
    }
    constexpr quint32 size = 54321; // of which nothing else is made
    ProcessDescription description(size, true);
    description.leaves.insert(QStringLiteral("number"), int32Slot(0));
    LiveRegion region(description);
    const ProcessDescription small(8, true);
    LiveRegion smallRegion(small);
    ProcessDataSnapshot snapshot;
    QVERIFY(snapshot.take(smallRegion.manager));
    LogCapture log;

    refusedSize = size;
    const bool isTaken = snapshot.take(region.manager);
    refusedSize = 0;

    QVERIFY(!isTaken);
    QVERIFY(snapshot.isEmpty());
    QCOMPARE(snapshot.getGeneration(), quint64{0});
    COMPARE_LOG(log, warning(QStringLiteral("No room for a copy of 54321 bytes of process data.")));
    QVERIFY(snapshot.take(region.manager));
    QCOMPARE(snapshot.getSize(), size);
}

QTEST_GUILESS_MAIN(tst_SnapshotMemory)
#include "tst_SnapshotMemory.moc"
