#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "mirror/DomainStatus.h"
#include "mirror/MirrorDomain.h"
#include "mirror/SendingPlan.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

class ProcessDataManager;
class ProcessDataWatcher;
struct tessel_mirror_SourceSet;

/// Hands the newest sets of one region to the engine, from a thread of its own while it follows that: between
/// the publisher and the engine nobody else has to wake up. What the region is said to be is said in their turn,
/// so that nothing older comes behind something newer.
///
/// Says the newest again each second, by the event loop of its maker, so that a receiver knows this program to be
/// at work, and not only the engine in it. All operations are for the thread of its maker. When what is said is for
/// SendingPlan to decide.
class SetSender : public QObject
{
    Q_OBJECT

public:
    /// What a region is called, where it is told of.
    struct Name
    {
        QString key;
        QString host;
        QByteArray identity;
    };

    /// @p domain has to live longer. @p lease and @p leastInterval: milliseconds, the latter from one set to the
    /// next. Throws a Refusal.
    SetSender(const MirrorDomain &domain, Name name, int lease, int leastInterval);
    ~SetSender() override;

    /// Of the layout, from the next set on.
    void setFingerprint(quint64 fingerprint);
    /// Sends what is published into the region of @p manager, which has to live until rest(), beginning with the
    /// newest. As of a region that was not followed before. Throws a Refusal: no thread can be started.
    void follow(ProcessDataManager &manager);
    /// The thread has ended, if there was one.
    void rest();
    /// Whether there is a thread.
    bool isFollowing() const { return m_watcher != nullptr; }

    /// There is no set to be shown.
    void tellState(SourceState state);
    /// The same of a publisher from whom nothing came behind @p generation; not if that is no longer so.
    bool tellSilent(quint64 generation);
    bool isLive() const;
    /// When the newest set was read for sending, if that is its @p generation.
    std::optional<std::chrono::steady_clock::time_point> readAt(quint64 generation) const;
    /// What was sent last.
    DomainStatus::Source sent() const;

Q_SIGNALS:
    /// A set came, of a publisher who was told to be silent. From the thread.
    void revived();
    /// What was to be sent waits for room. From the thread.
    void foundNoRoom();

private:
    using Clock = SendingPlan::Clock;

    void run(ProcessDataWatcher &watcher, ProcessDataManager &manager);
    bool sendNewest(ProcessDataManager &manager);
    bool restByRate(std::unique_lock<std::mutex> &lock, Clock::time_point since);
    void sayAgain();
    Clock::time_point nextAgain() const;
    void startAgain();
    bool sendKept();
    bool send(const unsigned char *bytes, quint32 size);

    const Name m_name;
    /// What all sets of this region have in common stands in it from the beginning: each one in a hurry finds it there.
    const std::unique_ptr<tessel_mirror_SourceSet> m_sample;
    dds_entity_t m_writer;
    QTimer m_again;
    std::unique_ptr<ProcessDataWatcher> m_watcher; ///< null while nothing is followed
    std::thread m_thread;
    ProcessDataSnapshot m_next; ///< the thread's own; kept, so that each copy finds its room

    mutable std::mutex m_mutex; ///< for all that follows, and for the order of what is sent
    std::condition_variable m_ended;
    bool m_isEnding = false;
    ProcessDataSnapshot m_set;
    SendingPlan m_plan;
    quint64 m_fingerprint = 0;
};
