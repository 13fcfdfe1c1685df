#include "native/SetWait.h"

#include "native/Failure.h"
#include "native/LibraryMessages.h"
#include "native/OpenRegion.h"

#include <utility>

/// Keeps the watcher while somebody is inside it. Says no once the end has come.
class SetWait::Use
{
public:
    explicit Use(SetWait &wait) : m_wait(wait)
    {
        m_wait.m_fork.requireOwnProcess();
        const std::lock_guard<std::mutex> lock(m_wait.m_mutex);
        m_isGranted = !m_wait.m_isEnded;
        m_wait.m_users += m_isGranted ? 1 : 0;
    }
    ~Use()
    {
        if (!m_isGranted) {
            return;
        }
        const std::lock_guard<std::mutex> lock(m_wait.m_mutex);
        --m_wait.m_users;
        m_wait.m_left.notify_all();
    }

    Use(const Use &) = delete;
    Use &operator=(const Use &) = delete;

    bool isGranted() const { return m_isGranted; }

private:
    SetWait &m_wait;
    bool m_isGranted = false;
};

SetWait::SetWait(std::shared_ptr<OpenRegion> region, ProcessDataManager &manager)
    : m_region(std::move(region))
    , m_watcher(std::make_unique<ProcessDataWatcher>(manager))
{
}

SetWait::~SetWait()
{
    if (m_fork.isInChild()) {
        // The thread behind it and the locks inside are those of the parent.
        static_cast<void>(m_watcher.release());
        return;
    }
    end();
}

SetWait::Outcome SetWait::outcomeOf(ProcessDataWatcher::Result result) const
{
    switch (result) {
    case ProcessDataWatcher::Result::NewSet: return Outcome::NewSet;
    case ProcessDataWatcher::Result::TimedOut: return Outcome::TimedOut;
    case ProcessDataWatcher::Result::Stopped: return Outcome::Ended;
    case ProcessDataWatcher::Result::RegionGone: m_region->requireCurrent(); break;
    case ProcessDataWatcher::Result::NotSupported: break;
    }
    throw Failure{Failure::Kind::Missing,
                  QStringLiteral("%1: the region '%2' has gone, or was replaced by a new one; "
                                 "attach again")
                      .arg(m_region->path(), m_region->key())};
}

SetWait::Outcome SetWait::wait(quint64 &seen, std::chrono::milliseconds bound)
{
    const Use use(*this);
    return use.isGranted() ? outcomeOf(m_watcher->wait(seen, bound)) : Outcome::Ended;
}

int SetWait::descriptor()
{
    const Use use(*this);
    if (!use.isGranted()) {
        throw Failure{
            Failure::Kind::Closed,
            QStringLiteral("%1: its region was closed; attach again").arg(m_region->path())};
    }
    const int descriptor = m_watcher->getDescriptor();
    if (descriptor < 0) {
        throw Failure{Failure::Kind::Access,
                      LibraryReasons::behind(
                          QStringLiteral("%1: no descriptor to wait by").arg(m_region->path()))};
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_descriptor = descriptor;
    return descriptor;
}

bool SetWait::hasDescriptor() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_descriptor >= 0;
}

SetWait::Outcome SetWait::acknowledge(quint64 &seen)
{
    const Use use(*this);
    return use.isGranted() ? outcomeOf(m_watcher->acknowledge(seen)) : Outcome::Ended;
}

void SetWait::end()
{
    m_fork.requireOwnProcess();
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!std::exchange(m_isEnded, true)) {
        m_watcher->stop();
    }
    m_left.wait(lock, [this] { return m_users == 0; });
    m_watcher.reset();
}
