#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "torture/SetCodec.h"

#include <QString>

#include <memory>

namespace Soak {

/// Which region a process is at.
struct RegionName
{
    QString key;
    bool isDoubleBuffer;
    /// A file that is locked while somebody attaches, and by a creator while it comes or goes: attaching in
    /// between may meet the memory of one region and the semaphores of the next, which no user can tell.
    QString door;
};

/// A region for as long as a process is at it, and what has to hold of the sets in it.
class SoakRegion
{
public:
    enum class Outcome {
        Done,
        NoLock, ///< a lock was refused, as on a busy machine, or where the semaphores go with their creator
    };

    /// Null, with @p fault as it was, if there is none at the moment; else null with the reason in @p fault.
    static std::unique_ptr<SoakRegion> attach(const RegionName &name, QString &fault);
    /// As attach(), of one that was not there.
    static std::unique_ptr<SoakRegion> create(const RegionName &name, QString &fault);
    /// Leaves it; of a creator the name goes.
    ~SoakRegion();

    SoakRegion(const SoakRegion &) = delete;
    SoakRegion &operator=(const SoakRegion &) = delete;

    ProcessDataManager &manager() { return *m_manager; }
    /// Whether the name leads to another memory by now, or to none.
    bool isReplaced() const;

    /// Copies a set. @p fault tells what is wrong with it: mixed of two, or older than one before.
    Outcome read(QString &fault);
    /// Writes a set that is newer than all before, and publishes it; @p back is microseconds that its number
    /// lies in the past, @p isHalf leaves the second half of it as it was.
    Outcome publish(int slot, QString &fault, quint64 back = 0, bool isHalf = false);

private:
    explicit SoakRegion(const RegionName &name);
    bool join(ProcessDataManager::InitTypeSharedMemory type, QString &fault);

    const RegionName m_name;
    std::unique_ptr<ProcessDataManager> m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
    std::unique_ptr<Torture::SetCodec> m_codec;
    ProcessDataSnapshot m_set;
    Torture::GroupValues m_values[2];
    bool m_isCreator = false;
    quint64 m_memory = 0; ///< number of the object that the name led to
    quint64 m_newest = 0;
};

} // namespace Soak
