#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDataWatcher.h"
#include "live/LiveRegion.h"
#include "recordings/RecordTrigger.h"
#include "recordings/SetRing.h"
#include "recordings/SlotCopies.h"
#include "text/SignalWait.h"

/// What a recorder is asked for.
struct RecorderOptions
{
    using Time = std::chrono::microseconds;

    std::optional<Time> interval; ///< none: every set
    std::optional<Time> ring;     ///< none: everything is written as it comes
    Time after{0};                ///< how long behind a trigger it goes on
    std::optional<Time> time;     ///< none: until somebody ends it
    quint64 sets = 0;             ///< 0: any number
    quint64 episodes = 0;         ///< that are saved for triggers; 0: any number
    std::vector<std::unique_ptr<RecordTrigger>> triggers;
};

/// Records the sets of a region, one after the other, until its time is over or somebody ends it.
///
/// A set that it has no time for is dropped as a whole, and counted by the generations.
class Recorder
{
public:
    enum class End { Interrupted, Time, Sets, Triggers, RegionGone };

    /// At most so much of the sets of a ring is held in memory, beside two whole ones.
    static constexpr quint64 sm_mostRingBytes = 256U * 1024 * 1024;

    /// The leaves have usable slots; @p values are those of them.
    Recorder(LiveRegion &region, const QVector<Leaf> &leaves, const QVector<RecordedValue> &values,
             const RecorderOptions &options, RecordingWriter &writer);

    Recorder::End run(SignalWait &signals);

    quint64 triggered() const { return m_triggered; }
    std::chrono::microseconds time() const;
    bool wasRingFull() const { return m_ring && m_ring->wasFull(); }

private:
    using Clock = std::chrono::steady_clock;

    std::optional<Recorder::End> step(SignalWait &signals);
    std::optional<Recorder::End> acknowledge();
    std::optional<Recorder::End> tick();
    void take();
    void takeLast();
    SetFacts factsOf(Clock::time_point now) const;
    void keep(const SetFacts &facts, const std::vector<const RecordTrigger *> &triggers);
    void save(const std::vector<const RecordTrigger *> &triggers);
    void beginRun(const QString &on);
    void lookAtGaps();
    std::optional<Recorder::End> due();
    Clock::time_point nextDeadline() const;
    void tellDropped();
    void finish(Recorder::End end);

    LiveRegion &m_region;
    const RecorderOptions &m_options;
    RecordingWriter &m_writer;
    ProcessDataWatcher m_watcher;
    ImageLayout m_layout;
    SlotCopies m_copies;
    std::optional<SetRing> m_ring;
    ProcessDataSnapshot m_set;
    QByteArray m_changes; ///< kept from one set to the next, for its memory
    quint64 m_seen = 0;
    quint64 m_generation = 0; ///< of the last set that was taken; 0 of none
    quint64 m_taken = 0;
    quint64 m_dropped = 0;
    quint64 m_untold = 0; ///< of those
    quint64 m_triggered = 0;
    quint64 m_saved = 0;      ///< episodes
    bool m_isWholeDue = true; ///< a run begins with the next set that is written
    std::optional<Clock::time_point> m_saveUntil;
    const Clock::time_point m_begin = Clock::now();
    Clock::time_point m_end = Clock::time_point::max();
    Clock::time_point m_nextTick = m_begin;
    Clock::time_point m_nextTelling = m_begin;
    Clock::time_point m_nextLook = m_begin; ///< at the file
};
