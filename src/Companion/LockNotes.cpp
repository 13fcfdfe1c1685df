#include "Companion/LockNotes_p.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <vector>

#include <pthread.h>

__thread LockNotes::Summary LockNotes::summary{};

namespace {

using LockNotes::summary;

/// A read that had to be repeated, until the next one at the same place succeeds.
struct RepeatStreak
{
    quint64 handler;
    int depth;
    int length; ///< 0: free
};

struct FinishedSet
{
    quint64 handler; ///< 0: free
    quint64 epoch;
};

constexpr int noteCapacity = 8;
constexpr int streakCapacity = 8;
/// Regions that a thread reads in turn and has to read again, beyond those that fit. A thread that
/// leaves regions in the middle of a repetition, and never comes back to them, fills no more memory
/// than this.
constexpr std::size_t moreStreaksCapacity = 1024;
constexpr int finishedCapacity = 8;

/// Plain numbers only: what has no constructor and no destructor needs no guard at each access.
struct ThreadNotes
{
    ReadLockNote notes[noteCapacity];
    RepeatStreak streaks[streakCapacity];
    std::size_t nextStreak;
    FinishedSet finished[finishedCapacity];
    int nextFinished;
};

thread_local ThreadNotes threadNotes;

/// The notes of threads that hold more locks at once than fit above, which is rare.
std::vector<ReadLockNote> &overflow()
{
    thread_local std::vector<ReadLockNote> notes;
    return notes;
}

std::vector<RepeatStreak> &moreStreaks()
{
    thread_local std::vector<RepeatStreak> streaks;
    return streaks;
}

/// The place of a handler, or with 0 a free one.
FinishedSet *findFinishedSet(quint64 handler)
{
    for (FinishedSet &set : threadNotes.finished) {
        if (set.handler == handler) {
            return &set;
        }
    }
    return nullptr;
}

/// After a note came or went.
void summariseNewest()
{
    if (summary.noteCount == 0) {
        summary.newestHandler = 0;
        summary.newestBuffer = nullptr;
        return;
    }
    const ReadLockNote &newest = summary.noteCount > noteCapacity
                                     ? overflow().back()
                                     : threadNotes.notes[summary.noteCount - 1];
    summary.newestHandler = newest.handler;
    summary.newestBuffer = newest.buffer;
}

int inlineStreakCount()
{
    const auto isTaken = [](const RepeatStreak &streak) { return streak.length > 0; };
    return static_cast<int>(
        std::count_if(std::cbegin(threadNotes.streaks), std::cend(threadNotes.streaks), isTaken));
}

RepeatStreak *findStreak(quint64 handler, int depth)
{
    if (summary.streakCount == 0) {
        return nullptr;
    }
    const auto matches = [handler, depth](const RepeatStreak &streak) {
        return streak.length > 0 && streak.handler == handler && streak.depth == depth;
    };
    for (RepeatStreak &streak : threadNotes.streaks) {
        if (matches(streak)) {
            return &streak;
        }
    }
    if (summary.streakCount == inlineStreakCount()) {
        return nullptr;
    }
    std::vector<RepeatStreak> &more = moreStreaks();
    const auto found = std::find_if(more.begin(), more.end(), matches);
    return found == more.end() ? nullptr : &*found;
}

/// A place for one more streak. Where all are taken the oldest of those that did not fit goes: its
/// reader then needs two more attempts.
RepeatStreak *newStreak()
{
    ThreadNotes &notes = threadNotes;
    for (RepeatStreak &streak : notes.streaks) {
        if (streak.length == 0) {
            ++summary.streakCount;
            return &streak;
        }
    }
    std::vector<RepeatStreak> &more = moreStreaks();
    if (more.size() < moreStreaksCapacity) {
        ++summary.streakCount;
        more.push_back({});
        return &more.back();
    }
    RepeatStreak *const oldest = &more[notes.nextStreak];
    notes.nextStreak = (notes.nextStreak + 1) % moreStreaksCapacity;
    return oldest;
}

void endStreak(RepeatStreak *streak)
{
    --summary.streakCount;
    if (streak >= std::begin(threadNotes.streaks) && streak < std::end(threadNotes.streaks)) {
        streak->length = 0;
        return;
    }
    *streak = moreStreaks().back();
    moreStreaks().pop_back();
}

void forgetStreaks(quint64 handler)
{
    ThreadNotes &notes = threadNotes;
    if (summary.streakCount == 0) {
        return;
    }
    for (RepeatStreak &streak : notes.streaks) {
        if (streak.length > 0 && streak.handler == handler) {
            endStreak(&streak);
        }
    }
    std::vector<RepeatStreak> &more = moreStreaks();
    const auto kept = std::remove_if(
        more.begin(), more.end(),
        [handler](const RepeatStreak &streak) { return streak.handler == handler; });
    summary.streakCount -= static_cast<int>(std::distance(kept, more.end()));
    more.erase(kept, more.end());
}

/// What a thread held and read in the parent is no business of the thread that goes on in a child.
void forgetAll()
{
    summary = {};
    threadNotes = {};
    overflow().clear();
    moreStreaks().clear();
}

} // namespace

quint64 LockNotes::newHandlerNumber()
{
    static std::atomic<quint64> last{0};
    [[maybe_unused]] static const int watching = pthread_atfork(nullptr, nullptr, forgetAll);
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

void LockNotes::add(const ReadLockNote &note)
{
    if (summary.noteCount < noteCapacity) {
        threadNotes.notes[summary.noteCount] = note;
    } else {
        overflow().push_back(note);
    }
    ++summary.noteCount;
    summary.newestHandler = note.handler;
    summary.newestBuffer = note.buffer;
}

std::optional<ReadLockNote> LockNotes::take(quint64 handler, const unsigned char *buffer)
{
    const auto matches = [handler, buffer](const ReadLockNote &note) {
        return note.handler == handler && note.buffer == buffer;
    };
    ThreadNotes &notes = threadNotes;
    if (summary.noteCount > noteCapacity) {
        std::vector<ReadLockNote> &more = overflow();
        const auto found = std::find_if(more.rbegin(), more.rend(), matches);
        if (found != more.rend()) {
            const ReadLockNote note = *found;
            more.erase(std::next(found).base());
            --summary.noteCount;
            summariseNewest();
            return note;
        }
    }
    for (int i = std::min(summary.noteCount, noteCapacity) - 1; i >= 0; --i) {
        if (!matches(notes.notes[i])) {
            continue;
        }
        const ReadLockNote note = notes.notes[i];
        std::copy(notes.notes + i + 1, notes.notes + std::min(summary.noteCount, noteCapacity),
                  notes.notes + i);
        if (summary.noteCount > noteCapacity) {
            notes.notes[noteCapacity - 1] = overflow().front();
            overflow().erase(overflow().begin());
        }
        --summary.noteCount;
        summariseNewest();
        return note;
    }
    return std::nullopt;
}

int LockNotes::count(quint64 handler)
{
    const auto ofHandler = [handler](const ReadLockNote &note) { return note.handler == handler; };
    if (summary.noteCount == 0) {
        return 0;
    }
    const ThreadNotes &notes = threadNotes;
    auto found = std::count_if(notes.notes, notes.notes + std::min(summary.noteCount, noteCapacity),
                               ofHandler);
    if (summary.noteCount > noteCapacity) {
        found += std::count_if(overflow().cbegin(), overflow().cend(), ofHandler);
    }
    return static_cast<int>(found);
}

unsigned char *LockNotes::newestBuffer(quint64 handler)
{
    if (summary.noteCount == 0 || summary.newestHandler == handler) {
        return summary.newestBuffer;
    }
    const auto ofHandler = [handler](const ReadLockNote &note) { return note.handler == handler; };
    const ThreadNotes &notes = threadNotes;
    if (summary.noteCount > noteCapacity) {
        const auto found = std::find_if(overflow().crbegin(), overflow().crend(), ofHandler);
        if (found != overflow().crend()) {
            return found->buffer;
        }
    }
    for (int i = std::min(summary.noteCount, noteCapacity) - 1; i >= 0; --i) {
        if (ofHandler(notes.notes[i])) {
            return notes.notes[i].buffer;
        }
    }
    return nullptr;
}

void LockNotes::forget(quint64 handler)
{
    ThreadNotes &notes = threadNotes;
    std::vector<ReadLockNote> kept;
    const int inlineCount = std::min(summary.noteCount, noteCapacity);
    std::copy_if(notes.notes, notes.notes + inlineCount, std::back_inserter(kept),
                 [handler](const ReadLockNote &note) { return note.handler != handler; });
    if (summary.noteCount > noteCapacity) {
        std::copy_if(overflow().cbegin(), overflow().cend(), std::back_inserter(kept),
                     [handler](const ReadLockNote &note) { return note.handler != handler; });
        overflow().clear();
    }
    summary.noteCount = 0;
    summariseNewest();
    for (const ReadLockNote &note : kept) {
        add(note);
    }
    forgetStreaks(handler);
    takeFinishedSet(handler);
}

int LockNotes::repeatsInARow(quint64 handler, int depth)
{
    const RepeatStreak *const streak = findStreak(handler, depth);
    return streak == nullptr ? 0 : streak->length;
}

void LockNotes::noteOutcome(quint64 handler, int depth, bool repeat)
{
    if (!repeat && summary.streakCount == 0) {
        return;
    }
    RepeatStreak *streak = findStreak(handler, depth);
    if (!repeat) {
        if (streak != nullptr) {
            endStreak(streak);
        }
        return;
    }
    if (streak == nullptr) {
        streak = newStreak();
        *streak = {handler, depth, 0};
    }
    ++streak->length;
}

void LockNotes::noteFinishedSet(quint64 handler, quint64 epoch)
{
    FinishedSet *set = findFinishedSet(handler);
    if (set == nullptr) {
        set = findFinishedSet(0);
    }
    if (set == nullptr) {
        // Whoever fills that many regions at once and swaps none of them: one swap of it may then
        // exchange where it need not.
        set = &threadNotes.finished[threadNotes.nextFinished];
        threadNotes.nextFinished = (threadNotes.nextFinished + 1) % finishedCapacity;
    }
    *set = {handler, epoch};
}

std::optional<quint64> LockNotes::takeFinishedSet(quint64 handler)
{
    FinishedSet *const set = findFinishedSet(handler);
    if (set == nullptr) {
        return std::nullopt;
    }
    set->handler = 0;
    return set->epoch;
}
