#include "Companion/Exchange/LockNotes_p.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <vector>

#include <cxxabi.h>
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

struct HandlerSet
{
    quint64 handler;
    SetNote note;
};

constexpr int noteCapacity = 8;
constexpr int streakCapacity = 8;
/// Regions that a thread reads in turn and has to read again, beyond those that fit. A thread that
/// leaves regions in the middle of a repetition, and never comes back to them, fills no more memory
/// than this.
constexpr std::size_t moreStreaksCapacity = 1024;
constexpr std::size_t leastSetCapacity = 8;

struct ThreadNotes
{
    ReadLockNote notes[noteCapacity];
    std::vector<ReadLockNote> moreNotes; ///< of a thread that holds more locks at once: rare
    RepeatStreak streaks[streakCapacity];
    std::vector<RepeatStreak> moreStreaks;
    std::size_t nextStreak;
    std::vector<HandlerSet> sets; ///< by handler; a note that was taken leaves its place behind
    HandlerSet *latestSet;        ///< in sets, the one that was asked for last; null: none
};

/// Null until the thread has something to remember.
__thread ThreadNotes *ownNotes __attribute__((tls_model("initial-exec"))) = nullptr;

/// From before a fork to after it: the calling thread has the list of handlers to itself.
__thread bool isForking __attribute__((tls_model("initial-exec"))) = false;

void endThread(void * /*nothing*/)
{
    delete ownNotes;
    ownNotes = nullptr;
    // Of a thread that ends inside a read lock.
    summary = {};
}

ThreadNotes &makeNotes()
{
    ownNotes = new ThreadNotes();
    // Unlike an object with a destructor, which is gone for good then, this can be asked for anew by
    // what ends after it in the same thread and uses a handler once more.
    // The address says which library has to stay loaded until then.
    static char here = 0;
    abi::__cxa_thread_atexit(endThread, nullptr, &here);
    return *ownNotes;
}

ThreadNotes &threadNotes()
{
    return ownNotes != nullptr ? *ownNotes : makeNotes();
}

/// The numbers of all handlers that live, in the order in which they were made. Stays to the end of
/// the process: handlers may be static objects.
class LivingHandlers
{
public:
    static LivingHandlers &instance()
    {
        static auto *const all = new LivingHandlers();
        return *all;
    }

    quint64 add()
    {
        const auto guard = enter();
        m_numbers.push_back(++m_last);
        return m_last;
    }
    void remove(quint64 number)
    {
        const auto guard = enter();
        const auto found = std::lower_bound(m_numbers.begin(), m_numbers.end(), number);
        if (found != m_numbers.end() && *found == number) {
            m_numbers.erase(found);
        }
    }
    /// Takes out what nobody will ask for any more.
    void prune(std::vector<HandlerSet> &sets)
    {
        const auto guard = enter();
        const auto isOver = [this](const HandlerSet &set) {
            return set.note.kind == SetNote::Kind::None
                   || !std::binary_search(m_numbers.cbegin(), m_numbers.cend(), set.handler);
        };
        sets.erase(std::remove_if(sets.begin(), sets.end(), isOver), sets.end());
    }

    // A child must not inherit the mutex from a thread that it does not have. In between run those
    // handlers of a fork that were there before the library was, and they may use it.
    static void beforeFork()
    {
        instance().m_mutex.lock();
        isForking = true;
    }
    static void afterFork()
    {
        isForking = false;
        instance().m_mutex.unlock();
    }

private:
    std::unique_lock<std::mutex> enter()
    {
        return isForking ? std::unique_lock<std::mutex>() : std::unique_lock<std::mutex>(m_mutex);
    }

    std::mutex m_mutex;
    std::vector<quint64> m_numbers;
    quint64 m_last = 0;
};

bool isBefore(const HandlerSet &set, quint64 handler)
{
    return set.handler < handler;
}

HandlerSet *findOtherSet(quint64 handler)
{
    std::vector<HandlerSet> &sets = ownNotes->sets;
    const auto found = std::lower_bound(sets.begin(), sets.end(), handler, isBefore);
    if (found == sets.end() || found->handler != handler) {
        return nullptr;
    }
    ownNotes->latestSet = &*found;
    return &*found;
}

/// The place of a handler; null if there is none.
HandlerSet *findSet(quint64 handler)
{
    if (ownNotes == nullptr) {
        return nullptr;
    }
    // Nearly always the one from before.
    HandlerSet *const latest = ownNotes->latestSet;
    return latest != nullptr && latest->handler == handler ? latest : findOtherSet(handler);
}

/// Room for a handler without one. All room is no more than some four times what the thread needed for
/// handlers that lived at the same time.
HandlerSet *makeSet(quint64 handler)
{
    std::vector<HandlerSet> &sets = threadNotes().sets;
    if (sets.size() == sets.capacity()) {
        LivingHandlers::instance().prune(sets);
        if (sets.size() * 2 >= sets.capacity()) {
            sets.reserve(std::max(leastSetCapacity, sets.capacity() * 2));
        }
    }
    const auto place = std::lower_bound(sets.begin(), sets.end(), handler, isBefore);
    // All others have moved.
    ownNotes->latestSet = &*sets.insert(place, {handler, {SetNote::Kind::None, 0}});
    return ownNotes->latestSet;
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
                                     ? threadNotes().moreNotes.back()
                                     : threadNotes().notes[summary.noteCount - 1];
    summary.newestHandler = newest.handler;
    summary.newestBuffer = newest.buffer;
}

int inlineStreakCount()
{
    const auto isTaken = [](const RepeatStreak &streak) { return streak.length > 0; };
    return static_cast<int>(std::count_if(std::cbegin(threadNotes().streaks),
                                          std::cend(threadNotes().streaks), isTaken));
}

RepeatStreak *findStreak(quint64 handler, int depth)
{
    if (summary.streakCount == 0) {
        return nullptr;
    }
    const auto matches = [handler, depth](const RepeatStreak &streak) {
        return streak.length > 0 && streak.handler == handler && streak.depth == depth;
    };
    for (RepeatStreak &streak : threadNotes().streaks) {
        if (matches(streak)) {
            return &streak;
        }
    }
    if (summary.streakCount == inlineStreakCount()) {
        return nullptr;
    }
    std::vector<RepeatStreak> &more = threadNotes().moreStreaks;
    const auto found = std::find_if(more.begin(), more.end(), matches);
    return found == more.end() ? nullptr : &*found;
}

/// A place for one more streak. Where all are taken the oldest of those that did not fit goes: its
/// reader then needs two more attempts.
RepeatStreak *newStreak()
{
    ThreadNotes &notes = threadNotes();
    for (RepeatStreak &streak : notes.streaks) {
        if (streak.length == 0) {
            ++summary.streakCount;
            return &streak;
        }
    }
    std::vector<RepeatStreak> &more = threadNotes().moreStreaks;
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
    if (streak >= std::begin(threadNotes().streaks) && streak < std::end(threadNotes().streaks)) {
        streak->length = 0;
        return;
    }
    *streak = threadNotes().moreStreaks.back();
    threadNotes().moreStreaks.pop_back();
}

void forgetStreaks(quint64 handler)
{
    ThreadNotes &notes = threadNotes();
    if (summary.streakCount == 0) {
        return;
    }
    for (RepeatStreak &streak : notes.streaks) {
        if (streak.length > 0 && streak.handler == handler) {
            endStreak(&streak);
        }
    }
    std::vector<RepeatStreak> &more = threadNotes().moreStreaks;
    const auto kept = std::remove_if(
        more.begin(), more.end(),
        [handler](const RepeatStreak &streak) { return streak.handler == handler; });
    summary.streakCount -= static_cast<int>(std::distance(kept, more.end()));
    more.erase(kept, more.end());
}

void forgetNotes(quint64 handler)
{
    if (summary.noteCount == 0) {
        return;
    }
    ThreadNotes &notes = threadNotes();
    std::vector<ReadLockNote> all(notes.notes,
                                  notes.notes + std::min(summary.noteCount, noteCapacity));
    all.insert(all.end(), notes.moreNotes.cbegin(), notes.moreNotes.cend());
    notes.moreNotes.clear();
    summary.noteCount = 0;
    summariseNewest();
    for (const ReadLockNote &note : all) {
        if (note.handler != handler) {
            LockNotes::add(note);
        }
    }
}

/// What a thread held and read in the parent is no business of the thread that goes on in a child.
void beginInChild()
{
    LivingHandlers::afterFork();
    summary = {};
    if (ownNotes != nullptr) {
        *ownNotes = {};
    }
}

// When the library is loaded: the handlers of a fork that the program has registered find a child
// in which all of this is done.
[[maybe_unused]] const int watching = pthread_atfork(LivingHandlers::beforeFork,
                                                     LivingHandlers::afterFork, beginInChild);

} // namespace

quint64 LockNotes::newHandlerNumber()
{
    return LivingHandlers::instance().add();
}

void LockNotes::add(const ReadLockNote &note)
{
    if (summary.noteCount < noteCapacity) {
        threadNotes().notes[summary.noteCount] = note;
    } else {
        threadNotes().moreNotes.push_back(note);
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
    ThreadNotes &notes = threadNotes();
    if (summary.noteCount > noteCapacity) {
        std::vector<ReadLockNote> &more = threadNotes().moreNotes;
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
            notes.notes[noteCapacity - 1] = threadNotes().moreNotes.front();
            threadNotes().moreNotes.erase(threadNotes().moreNotes.begin());
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
    const ThreadNotes &notes = threadNotes();
    auto found = std::count_if(notes.notes, notes.notes + std::min(summary.noteCount, noteCapacity),
                               ofHandler);
    if (summary.noteCount > noteCapacity) {
        found += std::count_if(threadNotes().moreNotes.cbegin(), threadNotes().moreNotes.cend(),
                               ofHandler);
    }
    return static_cast<int>(found);
}

std::optional<ReadLockNote> LockNotes::newest(quint64 handler)
{
    const auto ofHandler = [handler](const ReadLockNote &note) { return note.handler == handler; };
    if (summary.noteCount == 0) {
        return std::nullopt;
    }
    const ThreadNotes &notes = *ownNotes;
    if (summary.noteCount > noteCapacity) {
        const auto found = std::find_if(notes.moreNotes.crbegin(), notes.moreNotes.crend(),
                                        ofHandler);
        if (found != notes.moreNotes.crend()) {
            return *found;
        }
    }
    for (int i = std::min(summary.noteCount, noteCapacity) - 1; i >= 0; --i) {
        if (ofHandler(notes.notes[i])) {
            return notes.notes[i];
        }
    }
    return std::nullopt;
}

unsigned char *LockNotes::newestBuffer(quint64 handler)
{
    if (summary.noteCount == 0 || summary.newestHandler == handler) {
        return summary.newestBuffer;
    }
    const std::optional<ReadLockNote> note = newest(handler);
    return note ? note->buffer : nullptr;
}

void LockNotes::forget(quint64 handler)
{
    LivingHandlers::instance().remove(handler);
    forgetNotes(handler);
    forgetStreaks(handler);
    takeSetNote(handler);
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

SetNote LockNotes::setNote(quint64 handler)
{
    const HandlerSet *const set = findSet(handler);
    return set == nullptr ? SetNote{SetNote::Kind::None, 0} : set->note;
}

void LockNotes::noteSet(quint64 handler, SetNote note)
{
    HandlerSet *const set = findSet(handler);
    (set == nullptr ? makeSet(handler) : set)->note = note;
    if (note.kind == SetNote::Kind::Written) {
        summary.writtenHandler = handler;
    } else if (summary.writtenHandler == handler) {
        summary.writtenHandler = 0;
    }
}

SetNote LockNotes::takeSetNote(quint64 handler)
{
    const SetNote note = setNote(handler);
    if (note.kind != SetNote::Kind::None) {
        noteSet(handler, {SetNote::Kind::None, 0});
    }
    return note;
}

void LockNotes::noteBareWrite(quint64 handler, quint64 epoch)
{
    const SetNote note = setNote(handler);
    if (note.kind != SetNote::Kind::Finished || note.epoch != epoch) {
        noteSet(handler, {SetNote::Kind::Written, epoch});
    }
}

std::size_t LockNotes::setCapacity()
{
    return ownNotes == nullptr ? 0 : ownNotes->sets.capacity();
}
