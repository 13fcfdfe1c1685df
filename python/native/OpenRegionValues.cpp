// Reading and publishing the values of a region.

#include "Access/ProcessDataGuards.h"
#include "native/Failure.h"
#include "native/LibraryMessages.h"
#include "native/OpenRegion.h"
#include "native/TakenSet.h"

#include <QElapsedTimer>

#include <utility>

namespace {

/// As many as a read of a single value makes.
constexpr int mostAttempts = 11;

/// What was written and not published would go with the next set of anybody.
class FormerValues
{
public:
    explicit FormerValues(const QVector<Leaf> &leaves) : m_leaves(leaves) { }
    ~FormerValues()
    {
        // Of a leaf that was written twice the first one is the former one.
        for (auto former = m_writes.crbegin(); former != m_writes.crend(); ++former) {
            m_leaves[former->leaf].element->setValueNoLock(former->value);
        }
    }

    FormerValues(const FormerValues &) = delete;
    FormerValues &operator=(const FormerValues &) = delete;

    /// Writes, and keeps what was there before. False if the leaf refused it.
    bool replace(const LeafWrite &write)
    {
        ProcessValue former(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        const auto &element = m_leaves[write.leaf].element;
        element->getValueNoLock(former);
        if (!element->setValueNoLock(write.value)) {
            return false;
        }
        m_writes.append({write.leaf, former});
        return true;
    }
    void drop() { m_writes.clear(); }

private:
    const QVector<Leaf> &m_leaves;
    QVector<LeafWrite> m_writes;
};

} // namespace

quint64 OpenRegion::generation()
{
    m_fork.requireOwnProcess();
    const std::lock_guard<std::mutex> lock(m_mutex);
    requireOpen();
    return m_region->getSwapCount().value_or(0);
}

void OpenRegion::take(ProcessDataSnapshot &snapshot)
{
    QElapsedTimer timer;
    timer.start();
    for (int attempt = 0; attempt < mostAttempts; ++attempt) {
        ProcessDataReadGuard guard(*m_manager);
        if (!guard.isLocked()) {
            refuseLock(timer.elapsed());
        }
        // Inside the lock it copies once, and the end of the lock decides.
        snapshot.take(*m_manager);
        if (guard.unlock() && !snapshot.isEmpty()) {
            return;
        }
        if (!guard.mustRepeat()) {
            refuseLock(timer.elapsed());
        }
    }
    throw Failure{Failure::Kind::NotReliable,
                  QStringLiteral("%1: no consistent set in %2 attempts, writers are too fast")
                      .arg(m_path, QString::number(mostAttempts))};
}

std::shared_ptr<TakenSet> OpenRegion::read(const QVector<int> &leaves)
{
    m_fork.requireOwnProcess();
    const std::lock_guard<std::mutex> lock(m_mutex);
    requireOpen();
    ProcessDataSnapshot snapshot;
    take(snapshot);
    if (m_tree.isDoubleBuffered && snapshot.getGeneration() == 0) {
        throw Failure{
            Failure::Kind::NotReliable,
            QStringLiteral("%1: nothing was published in region '%2' yet").arg(m_path, m_tree.key)};
    }
    auto set = std::make_shared<TakenSet>(shared_from_this(), leaves, std::move(snapshot));
    const std::lock_guard<std::mutex> setsLock(m_setsMutex);
    m_sets.insert(set.get());
    return set;
}

void OpenRegion::publish(const QVector<LeafWrite> &writes)
{
    m_fork.requireOwnProcess();
    const std::lock_guard<std::mutex> lock(m_mutex);
    requireOpen();
    requireWritable();
    write(writes);
}

void OpenRegion::write(const QVector<LeafWrite> &writes)
{
    QElapsedTimer timer;
    timer.start();
    const ProcessDataWriteGuard guard(*m_manager);
    if (!guard.isLocked()) {
        refuseLock(timer.elapsed());
    }
    FormerValues former(m_leaves);
    for (const auto &write : writes) {
        if (!former.replace(write)) {
            throw Failure{
                Failure::Kind::Refused,
                LibraryReasons::behind(
                    QStringLiteral("'%1' was not written").arg(m_leaves[write.leaf].url))};
        }
    }
    // Inside the lock: what is not published is taken back before anybody's next set takes it along.
    if (!m_manager->swapReadAndWriteBuffer()) {
        throw Failure{
            Failure::Kind::Access,
            LibraryReasons::behind(QStringLiteral("%1: the set was not published").arg(m_path))};
    }
    former.drop();
}
