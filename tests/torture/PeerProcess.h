#pragma once

#include <QStringList>

#include <optional>

#include <sys/types.h>

namespace Torture {

/// One child of the driver, which may be started again and again. Never outlives the driver.
class PeerProcess
{
public:
    PeerProcess() = default;
    ~PeerProcess();

    PeerProcess(const PeerProcess &) = delete;
    PeerProcess &operator=(const PeerProcess &) = delete;

    /// Runs this program anew with other arguments.
    void start(const QStringList &arguments);
    bool isAlive() const { return m_isAlive; }
    bool isStopped() const { return m_isStopped; }
    /// Of the newest one, also after its end.
    pid_t pid() const { return m_pid; }

    /// Comes back when it stands still. False if it has ended instead, which collectEnd() tells.
    bool stop();
    void resume();
    /// Comes back when the kernel has given back all that it held. False if it had ended by itself
    /// before, which collectEnd() tells.
    bool kill();
    /// How it ended, if it did: as waitpid() has it.
    std::optional<int> collectEnd();

    /// Nanoseconds for which it and those before it were ready to run and got no processor.
    qint64 starved();

private:
    void forget();

    pid_t m_pid = -1;
    bool m_isAlive = false;
    bool m_isStopped = false;
    std::optional<int> m_end; ///< seen by the way, not yet collected
    int m_schedulerStatistics = -1;
    qint64 m_starvedBefore = 0;
    qint64 m_starvedNow = 0;
};

} // namespace Torture
