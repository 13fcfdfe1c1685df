#include "torture/ForkMode.h"

#include "support/ChildProcess.h"
#include "torture/CaughtSignal.h"
#include "torture/ForkedChild.h"
#include "torture/SetCodec.h"

#include <atomic>
#include <thread>
#include <vector>

#include <sys/mman.h>

namespace Torture {

namespace {

constexpr int childrenOfRound = 8;
constexpr quint32 bufferSize = 64;

/// Threads that are inside the library nearly all the time.
class BusyThreads
{
public:
    explicit BusyThreads(ForkedChild::Inheritance &inheritance)
    {
        ProcessDataManager &manager = *inheritance.manager;
        BufferHandlerInterface &handler = *inheritance.handlerWithoutSemaphores;
        keepDoing([&manager] {
            manager.lockWriteBuffer();
            manager.unlockWriteBuffer();
            manager.swapReadAndWriteBuffer();
        });
        keepDoing([&manager] {
            bool repeat = false;
            manager.lockReadBuffer();
            manager.unlockReadBuffer(repeat);
        });
        keepDoing([&handler] { handler.lockForWrite(); });
    }
    ~BusyThreads()
    {
        m_isEnding = true;
        for (std::thread &thread : m_threads) {
            thread.join();
        }
    }

    BusyThreads(const BusyThreads &) = delete;
    BusyThreads &operator=(const BusyThreads &) = delete;

private:
    template <class Work>
    void keepDoing(const Work &work)
    {
        m_threads.emplace_back([this, work] {
            while (!m_isEnding) {
                work();
            }
        });
    }

    std::atomic<bool> m_isEnding{false};
    std::vector<std::thread> m_threads;
};

std::unique_ptr<ProcessDataManager> makeManager(const QString &key)
{
    auto manager = std::make_unique<ProcessDataManager>();
    manager->createProcessDataFromJson(SetCodec::description(key, true),
                                       QStringLiteral("process.json"),
                                       ProcessDataManager::InitTypeSharedMemoryCreate);
    return manager;
}

void takeLock(ProcessDataManager &manager, ForkedChild::Inside inside)
{
    if (inside == ForkedChild::Inside::ReadLock) {
        manager.lockReadBuffer();
    } else if (inside == ForkedChild::Inside::WriteLock) {
        manager.lockWriteBuffer();
    }
}

void giveLockBack(ProcessDataManager &manager, ForkedChild::Inside inside)
{
    if (inside == ForkedChild::Inside::ReadLock) {
        bool repeat = false;
        manager.unlockReadBuffer(repeat);
        // The third read in a row would hold off the child that wants to write.
        while (repeat) {
            manager.lockReadBuffer();
            manager.unlockReadBuffer(repeat);
        }
    } else if (inside == ForkedChild::Inside::WriteLock) {
        manager.unlockWriteBuffer();
    }
}

} // namespace

ForkMode::ForkMode(const Options &options)
    : TortureMode(options)
    , m_region(m_key + QLatin1String("Removed"), true)
    , m_semaphores(m_key + QLatin1String("Semaphore"))
    , m_segment(m_key + QLatin1String("SharedMemory"))
{
}

void ForkMode::playRound()
{
    const quint64 seed = random(~quint64{0});
    ChildProcess parent([this, seed](const ChildSide & /*driver*/) {
        ignoreSignals();
        return beParent(seed);
    });
    const int exitCode = parent.waitForExit();
    m_children += childrenOfRound;
    if (exitCode != 0) {
        fail(m_stage->failure[0] != '\0'
                 ? QString::fromUtf8(m_stage->failure)
                 : QStringLiteral("crash: a parent ended with %1").arg(exitCode));
        return;
    }
    if (isPlanted(Plant::Semaphores)) {
        m_semaphores.make({1});
    }
    if (m_semaphores.exists() || m_segment.exists()) {
        fail(QStringLiteral("left behind: ")
             + (m_segment.exists() ? m_segment.path() : QStringLiteral("a set of semaphores")));
    }
}

/// In the process whose threads are busy.
int ForkMode::beParent(quint64 seed)
{
    std::mt19937_64 numbers(seed);
    const auto fails = [this](const char *text) {
        copyText(m_stage->failure, QLatin1String(text));
        return 1;
    };
    ForkedChild::Inheritance inheritance;
    inheritance.manager = makeManager(m_key);
    if (numbers() % 4 == 0) {
        // The one before does not take the name of the one after it with it.
        std::unique_ptr<ProcessDataManager> later = makeManager(m_key);
        std::swap(inheritance.manager, later);
    }
    if (!m_segment.exists()) {
        return fails("unlinked: a creator that was replaced removes the name of its successor");
    }
    m_region.reset(bufferSize);
    inheritance.handlerWithoutSemaphores = m_region.makeHandler(
        SystemVSemaphoreBaseClass::CreationTypeCreate);
    m_region.semaphores().remove();
    const quint64 inode = m_segment.inode();
    const BusyThreads threads(inheritance);
    for (int i = 0; i < childrenOfRound; ++i) {
        inheritance.inside = static_cast<ForkedChild::Inside>(numbers() % 3);
        takeLock(*inheritance.manager, inheritance.inside);
        const bool isWell = ForkedChild(*m_stage, m_options.plant, inheritance).run(numbers());
        if (isPlanted(Plant::Unlinked)) {
            shm_unlink(qPrintable(m_segment.name()));
        }
        const bool isHeld = inheritance.inside != ForkedChild::Inside::WriteLock
                            || m_semaphores.isWriteLocked() || m_semaphores.isKept();
        giveLockBack(*inheritance.manager, inheritance.inside);
        if (!isWell) {
            return 1;
        }
        if (!isHeld) {
            return fails("given back: a child ends the lock of its parent");
        }
        if (!m_segment.exists() || m_segment.inode() != inode) {
            return fails("unlinked: a child removes the name of its parent's memory");
        }
    }
    return 0;
}

QString ForkMode::figures() const
{
    return QStringLiteral("%1 parents with busy threads, %2 children")
        .arg(m_rounds)
        .arg(m_children);
}

} // namespace Torture
