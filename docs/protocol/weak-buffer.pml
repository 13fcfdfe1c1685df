/*
 * The double buffer on weak memory, as a model for the checker Spin. script/checks/model runs it;
 * README.md beside this file tells what it shows and how to read a counterexample.
 *
 * The steps are those of double-buffer.pml, each load and store with the order that it has in the code
 * (PingPongBufferHandler.cpp, OptimisticRead_p.h), on the memory of weak-memory.pml. The lock is a
 * semaphore; what it has to order for its holders when it is a lease is in weak-lease.pml.
 *
 * Nobody dies here. What a death at any moment would leave behind is a promise of its own instead: whoever
 * comes next goes by `writerPid`.
 */

#ifndef SETS
#define SETS 2 /* that each writer writes */
#endif
#ifndef WRITERS
#define WRITERS 1
#endif
#ifndef READERS
#define READERS 1 /* with the id behind the writers; 0 or 1 */
#endif
/*
 * More that may happen:
 *   SWAP_INSIDE   writers swap inside their write lock and write one more set
 *   MARKS         the words for a death are kept: writerPid and finishedCount
 *   HALF_SET      so is what a writer has left that died in the middle of its set; with MARKS
 *
 * Faults, each of which breaks one promise:
 *   NO_RELEASE_FENCE      W2 left out
 *   NO_ACQUIRE_FENCE      R3 left out
 *   RELAXED_WRITE_EPOCH   W1 does not release
 *   RELAXED_SWAP          S does not release
 *   RELAXED_EPOCH         R1 does not acquire
 *   RELAXED_END           writerPid goes without release at the end of a set
 *   RELAXED_TAKE_BACK     and when a half set was taken back
 *   RELAXED_FINISHED      finishedCount is no release store
 */

#define PLACES 10
#define SLOTS 8
#define PROCESSES (WRITERS + READERS)

#define SWAP_COUNT 0
#define WRITE_EPOCH(epoch) (1 + ((epoch) & 1))
#define FIRST(epoch) (3 + 2 * ((epoch) & 1))
#define SECOND(epoch) (4 + 2 * ((epoch) & 1))
#define COPIED_EPOCH 7
#define FINISHED_COUNT 8
#define WRITER_PID 9

#define VALUES 120 /* places 3 to 6 */

bool acceptedSetIsWhole = true;
bool publishedSetIsFinished = true;
bool nobodyRepeatsForNothing = true;
bool markComesFirst = true;
bool markGoesLast = true;
bool setCountsWhenFinished = true;

#define promise(name, condition) name = (condition); assert(name)

/* What an onlooker says to each store that comes out. */
#ifdef MARKS
#define looksOnMarks(where, what)                                                                   \
    promise(markComesFirst, !(bit(where) & VALUES) || memory[WRITER_PID] != 0);                     \
    promise(markGoesLast, (where) != WRITER_PID || (what) != 0                                      \
                              || memory[FIRST(memory[SWAP_COUNT] + 1)]                              \
                                     == memory[SECOND(memory[SWAP_COUNT] + 1)]);                    \
    promise(setCountsWhenFinished, (where) != FINISHED_COUNT || (what) == 0                         \
                                       || memory[WRITER_PID] == 0)
#else
#define looksOnMarks(where, what) skip
#endif
#define looksOn(where, what)                                                                        \
    promise(publishedSetIsFinished,                                                                 \
            (where) != SWAP_COUNT || memory[FIRST(what)] == memory[SECOND(what)]);                  \
    promise(nobodyRepeatsForNothing,                                                                \
            ((where) != 1 && (where) != 2) || (what) <= memory[SWAP_COUNT]);                        \
    looksOnMarks(where, what)

#include "weak-memory.pml"

byte holder; /* of the semaphore */
byte lastSet;
byte published[8]; /* set that the swap to an epoch published */

inline take()
{
    d_step { holder == 0 -> holder = id; forgetEarly(id) }
    m_of[id].count == 0
}

inline giveBack()
{
    d_step { forgetEarly(id) }
    d_step { m_of[id].count == 0 -> holder = 0 }
}

/* Words that none but the holder of the lock looks at: without deaths it does not matter when they come
 * out. */
#ifdef MARKS
#define storeLocked(where, what) store(where, what)
#else
#define storeLocked(where, what) memory[where] = what
#endif

/* Writing --------------------------------------------------------------------------------------- */

#ifdef RELAXED_WRITE_EPOCH
#define storeWriteEpoch store
#else
#define storeWriteEpoch storeRelease
#endif
#ifdef RELAXED_SWAP
#define storeSwapCount store
#else
#define storeSwapCount storeRelease
#endif
#ifdef RELAXED_END
#define storeEnd store
#else
#define storeEnd storeRelease
#endif
#ifdef RELAXED_TAKE_BACK
#define storeTakenBack store
#else
#define storeTakenBack storeRelease
#endif
#ifdef RELAXED_FINISHED
#define storeFinished store
#else
#define storeFinished storeRelease
#endif

inline markWriteEpoch()
{
    storeWriteEpoch(WRITE_EPOCH(epoch + 1), epoch);
#ifndef NO_RELEASE_FENCE
    releaseFence()
#endif
}

inline copy()
{
    load(FIRST(epoch), number);
    store(FIRST(epoch + 1), number);
    load(SECOND(epoch), number);
    store(SECOND(epoch + 1), number)
}

inline takeBack()
{
    markWriteEpoch();
    copy();
    storeLocked(COPIED_EPOCH, epoch);
    storeLocked(FINISHED_COUNT, 0);
    storeTakenBack(WRITER_PID, 0)
}

inline beginWriting()
{
#ifdef MARKS
    storeLocked(WRITER_PID, id);
#endif
    markWriteEpoch();
    load(COPIED_EPOCH, number);
    if
    :: number != epoch -> copy(); storeLocked(COPIED_EPOCH, epoch)
    :: else
    fi
}

inline writeValues()
{
    d_step { lastSet++; set = lastSet }
    store(FIRST(epoch + 1), set);
    store(SECOND(epoch + 1), set)
}

/* The number of a set is known by then, and of the two behind one another in an epoch the later counts. */
inline swap()
{
    published[epoch + 1] = lastSet;
    storeSwapCount(SWAP_COUNT, epoch + 1)
}

proctype Writer(byte id)
{
    byte sets, epoch, set, number, finished;
    do
    :: sets < SETS ->
           sets++;
           take();
           load(SWAP_COUNT, epoch);
#ifdef HALF_SET
           load(WRITER_PID, number);
           if
           :: number != 0 -> takeBack()
           :: else
           fi;
#endif
           beginWriting();
           writeValues();
#ifdef SWAP_INSIDE
           swap();
           epoch++;
           beginWriting();
           writeValues();
#endif
#ifdef MARKS
           storeEnd(WRITER_PID, 0);
           storeFinished(FINISHED_COUNT, epoch + 1);
#endif
           finished = epoch;
           giveBack();
           take();
           load(SWAP_COUNT, epoch);
           load(COPIED_EPOCH, number);
           if
           :: finished == epoch || number == epoch -> swap()
           :: else /* isPublishedAlready() */
           fi;
           giveBack();
           d_step { epoch = 0; set = 0; number = 0; finished = 0 }
    :: else -> break
    od
}

/* Reading --------------------------------------------------------------------------------------- */

#define hopesOf(epoch) (bit(FIRST(epoch)) | bit(SECOND(epoch)) | bit(WRITE_EPOCH(epoch)))

inline loadEpoch()
{
#ifdef RELAXED_EPOCH
    /* Nothing holds the loads behind it: they may have begun with either buffer. */
    if
    :: m_of[id].hopes = hopesOf(0)
    :: m_of[id].hopes = hopesOf(1)
    fi;
    load(SWAP_COUNT, epoch)
#else
    loadAcquire(SWAP_COUNT, epoch);
    m_of[id].hopes = hopesOf(epoch)
#endif
}

proctype Reader(byte id)
{
    byte epoch, first, second, begun;
    loadEpoch();                  /* R1 */
    load(FIRST(epoch), first);    /* R2 */
    load(SECOND(epoch), second);
#ifndef NO_ACQUIRE_FENCE
    acquireFence(); /* R3 */
#endif
    load(WRITE_EPOCH(epoch), begun); /* R4 */
    promise(acceptedSetIsWhole,
            begun > epoch || (first == published[epoch] && second == published[epoch]))
}

init
{
    byte who = 1;
    atomic {
        memory[COPIED_EPOCH] = 255;
#ifdef HALF_SET
        memory[WRITER_PID] = 100;
        memory[FIRST(1)] = 100;
#endif
        do
        :: who <= WRITERS -> run Writer(who); run Memory(who); who++
        :: else -> break
        od;
#if READERS > 0
        run Reader(who);
        run Memory(who)
#endif
    }
}
