#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "Inspection/RegionInspection.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "native/DescriptionTree.h"
#include "native/ForkMark.h"

#include <QVector>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_set>
#include <vector>

class SetWait;
class TakenSet;

/// A value or error state for a leaf of an open region.
struct LeafWrite
{
    int leaf; ///< its index
    ProcessValue value;
};

/// A region that this process has attached or created, until close().
///
/// Any thread may use it. What reads, writes or decodes excludes each other, since two threads must not use one
/// element at once; waiting is done beside that, in a SetWait. Every operation that may take a while is to be
/// called without the interpreter's lock, and nothing here takes that one. In a forked child everything throws
/// a Failure, and what the parent holds is left to it.
class OpenRegion : public std::enable_shared_from_this<OpenRegion>
{
public:
    enum class Opening { Attach, AttachReadOnly, Create };

    /// @p prefix is that of the key which a created folder of descriptions gets.
    OpenRegion(const QString &path, Opening opening, const QString &prefix);
    /// As close().
    ~OpenRegion();

    OpenRegion(const OpenRegion &) = delete;
    OpenRegion &operator=(const OpenRegion &) = delete;

    const QString &path() const { return m_path; }
    const QString &key() const { return m_tree.key; }
    bool isCreated() const { return m_opening == Opening::Create; }
    /// Everything but the elements stays as it is when the region is closed.
    const QVector<Leaf> &leaves() const { return m_leaves; }
    bool isOpen() const;

    /// How often the region was swapped; 0 with a single buffer.
    quint64 generation();
    /// One consistent set; @p leaves are the ones that it tells of.
    std::shared_ptr<TakenSet> read(const QVector<int> &leaves);
    /// Writes all of them and publishes them as one set, or none.
    void publish(const QVector<LeafWrite> &writes);
    /// A way of its own to wait for sets.
    std::shared_ptr<SetWait> makeWait();
    /// Gives the region back. Sets that were read keep their values; who waits is told.
    void close();

    /// Throws a Failure if the region was attached for reading alone.
    void requireWritable() const;
    /// Throws the Failure of a region that went away under its user.
    void requireCurrent() const;

    // For the sets and the waits of this region.
    void forget(TakenSet *set);
    /// Runs @p action while no other thread uses the elements. Throws a Failure in a forked child.
    void exclusively(const std::function<void()> &action);

private:
    void attach();
    void create(const QString &prefix);
    void requireMatchingRegion() const;
    void requireOpen() const;
    [[noreturn]] void refuseLock(qint64 waitedMilliseconds) const;
    void checkSlots();
    void take(ProcessDataSnapshot &snapshot);
    void write(const QVector<LeafWrite> &writes);

    ForkMark m_fork;
    QString m_path;
    Opening m_opening;
    mutable std::mutex m_mutex;
    bool m_isClosed = false;
    DescriptionTree m_tree;
    QVector<Leaf> m_leaves;
    /// A set is dropped with the interpreter's lock held, and must not wait for who waits inside m_mutex. Taken
    /// inside that one, or alone.
    std::mutex m_setsMutex;
    std::unordered_set<TakenSet *> m_sets; ///< those whose values lie in their snapshots
    std::vector<std::weak_ptr<SetWait>> m_waits;
    // Destroyed from the last to the first.
    std::optional<RegionInspection>
        m_region; ///< the memory of this one, whatever becomes of its name
    std::unique_ptr<ProcessDataManager> m_manager;
};
