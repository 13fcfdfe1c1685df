#include "Companion/PingPongBufferHandler.h"
#include "HeldRegion.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "descriptions/DescriptionSource.h"
#include "live/RegionWait.h"
#include "support/LogCapture.h"
#include "text/Failure.h"

#include <QtTest>

#include <atomic>
#include <ctime>
#include <functional>
#include <memory>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>

using namespace std::chrono_literals;

namespace {

/// Whether a region goes in the moment in which somebody attaches to it.
std::atomic<bool> doesVanish{false};
std::atomic<int> vanished{0};
/// Called once, in place of the next pause.
std::function<void()> insteadOfPause;

} // namespace

/// In the place of the function that the library calls.
extern "C" Q_DECL_EXPORT int shm_open(const char *name, int flags, mode_t mode)
{
    using Open = int (*)(const char *, int, mode_t);
    static const auto original = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "shm_open"));
    // Only an attachment asks for that, and a look does not.
    if (doesVanish && (flags & (O_CREAT | O_EXCL)) == O_EXCL && shm_unlink(name) == 0) {
        ++vanished;
    }
    return original(name, flags, mode);
}

extern "C" Q_DECL_EXPORT int nanosleep(const timespec *time, timespec *left)
{
    using Sleep = int (*)(const timespec *, timespec *);
    static const auto original = reinterpret_cast<Sleep>(dlsym(RTLD_NEXT, "nanosleep"));
    if (const auto instead = std::exchange(insteadOfPause, nullptr)) {
        instead();
        return 0;
    }
    return original(time, left);
}

/// How far a wait for a region comes.
class tst_RegionWait : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void regionThatGoesBehindTheLookIsWaitedForAnew();
};

void tst_RegionWait::regionThatGoesBehindTheLookIsWaitedForAnew()
{
    ToolDescription file;
    file.add(QStringLiteral("n/a"), QStringLiteral("int32"), ToolDescription::Metadata::ErrorState,
             4);
    const QString path = file.write();
    const LogCapture log;
    const HeldRegion region(path);
    QVERIFY(region.isValid());
    SharedMemory memory;
    memory.setKey(file.key() + QStringLiteral("SharedMemory"));
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->swapCount = 0;
    const DescriptionSource description(path);
    // Only what is missing is waited for with pauses.
    std::unique_ptr<HeldRegion> later;
    insteadOfPause = [&] {
        doesVanish = false;
        later = std::make_unique<HeldRegion>(path);
    };
    doesVanish = true;

    const RegionProgress progress = waitUntilPublished(description,
                                                       std::chrono::steady_clock::now() + 60s);

    QCOMPARE(vanished.load(), 1);
    QVERIFY(later);
    QVERIFY(progress == RegionProgress::Published);
}

QTEST_GUILESS_MAIN(tst_RegionWait)
#include "tst_RegionWait.moc"
