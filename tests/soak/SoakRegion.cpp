#include "soak/SoakRegion.h"

#include <chrono>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Soak {

namespace {

using Torture::SetNumber;

/// A lock on the door of a region until it goes.
class Door
{
public:
    Door(const QString &fileName, int operation)
        : m_fd(open(qPrintable(fileName), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
        if (m_fd < 0 || flock(m_fd, operation) != 0) {
            qFatal("no lock on %s", qPrintable(fileName));
        }
    }
    ~Door() { close(m_fd); }

    Door(const Door &) = delete;
    Door &operator=(const Door &) = delete;

private:
    int m_fd;
};

/// Of what the name of the region leads to; 0 where that is nothing.
quint64 memoryNumber(const QString &key)
{
    struct stat status
    {
    };
    const QString path = QStringLiteral("/dev/shm/%1SharedMemory").arg(key);
    return stat(qPrintable(path), &status) == 0 ? status.st_ino : 0;
}

/// One clock for all processes: of two sets, written one behind the other, the second has the later time.
quint64 microseconds()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<quint64>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

} // namespace

SoakRegion::SoakRegion(const RegionName &name)
    : m_name(name)
    , m_manager(std::make_unique<ProcessDataManager>())
{
}

SoakRegion::~SoakRegion()
{
    if (!m_isCreator) {
        return;
    }
    // By itself it would go behind this, too late for the door.
    const Door door(m_name.door, LOCK_EX);
    m_codec.reset();
    m_root.reset();
    m_manager.reset();
}

std::unique_ptr<SoakRegion> SoakRegion::attach(const RegionName &name, QString &fault)
{
    const Door door(name.door, LOCK_SH);
    if (memoryNumber(name.key) == 0) {
        return nullptr;
    }
    std::unique_ptr<SoakRegion> region(new SoakRegion(name));
    return region->join(ProcessDataManager::InitTypeSharedMemoryAttach, fault) ? std::move(region)
                                                                               : nullptr;
}

std::unique_ptr<SoakRegion> SoakRegion::create(const RegionName &name, QString &fault)
{
    const Door door(name.door, LOCK_EX);
    std::unique_ptr<SoakRegion> region(new SoakRegion(name));
    if (!region->join(ProcessDataManager::InitTypeSharedMemoryCreate, fault)) {
        return nullptr;
    }
    region->m_isCreator = true;
    return region;
}

bool SoakRegion::join(ProcessDataManager::InitTypeSharedMemory type, QString &fault)
{
    m_root = m_manager->createProcessDataFromJson(
        Torture::SetCodec::description(m_name.key, m_name.isDoubleBuffer),
        QStringLiteral("process.json"), type);
    if (m_root.isNull()) {
        fault = QStringLiteral("the region %1 is refused").arg(m_name.key);
        return false;
    }
    m_codec = std::make_unique<Torture::SetCodec>(m_root);
    m_memory = memoryNumber(m_name.key);
    return true;
}

bool SoakRegion::isReplaced() const
{
    return memoryNumber(m_name.key) != m_memory;
}

SoakRegion::Outcome SoakRegion::read(QString &fault)
{
    if (!m_set.take(*m_manager)) {
        return Outcome::NoLock;
    }
    quint64 numbers[2] = {0, 0};
    for (const auto group : {Torture::FirstGroup, Torture::SecondGroup}) {
        Torture::GroupValues &values = m_values[group];
        if (!m_codec->readGroup(group, m_set, values)
            || !Torture::SetCodec::numberOf(values, numbers[group])) {
            fault = QStringLiteral("a set that nobody wrote");
            return Outcome::Done;
        }
        const QString foreign = m_codec->findForeign(group, values, numbers[group]);
        if (!foreign.isEmpty()) {
            fault = QStringLiteral("a torn set: ") + foreign;
            return Outcome::Done;
        }
    }
    // Every writer writes both groups.
    if (numbers[0] != numbers[1]) {
        fault = QStringLiteral("a torn set: one half is of set %1, the other of %2")
                    .arg(numbers[0])
                    .arg(numbers[1]);
    } else if (numbers[0] < m_newest) {
        fault = QStringLiteral("an older set: %1 after %2").arg(numbers[0]).arg(m_newest);
    }
    m_newest = numbers[0];
    return Outcome::Done;
}

SoakRegion::Outcome SoakRegion::publish(int slot, QString &fault, quint64 back, bool isHalf)
{
    m_manager->lockWriteBuffer();
    if (m_manager->getPointerWriteBuffer() == nullptr) {
        m_manager->unlockWriteBuffer();
        return Outcome::NoLock;
    }
    // Under the lock, so that a later set has the greater number.
    const quint64 number = SetNumber::make(microseconds() - back, slot, Torture::Content::Both);
    bool isWritten = true;
    for (const auto group : {Torture::FirstGroup, Torture::SecondGroup}) {
        for (int index = 0;
             index < m_codec->size(group) && !(isHalf && group == Torture::SecondGroup); ++index) {
            isWritten = m_codec->writeLeaf(group, index, number) && isWritten;
        }
    }
    m_manager->unlockWriteBuffer();
    const bool isSwapped = m_manager->swapReadAndWriteBuffer();
    if (!isWritten) {
        fault = QStringLiteral("a value is refused inside a write lock");
    }
    return isSwapped ? Outcome::Done : Outcome::NoLock;
}

} // namespace Soak
