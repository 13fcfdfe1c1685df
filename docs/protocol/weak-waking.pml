/*
 * A reader that sleeps, on weak memory, as a model for the checker Spin. script/checks/model runs it;
 * README.md beside this file tells what it shows and how to read a counterexample.
 *
 * The steps are P1 to P6 and W1 to W5 of SetWaiting.cpp, each load and store with the order that it has
 * there, on the memory of weak-memory.pml. Nobody dies, and a sleep has no bound: who sleeps though the
 * epoch is over was forgotten.
 *
 * The lock is a semaphore. Its operations acquire and release, and let the store of P1 out before the
 * lock is free, but are no full fence.
 */

#ifndef PUBLISHERS
#define PUBLISHERS 1
#endif
#ifndef WAITERS
#define WAITERS 1
#endif
#ifndef EPOCHS
#define EPOCHS 2 /* swaps of all publishers together */
#endif
/*
 * Otherwise:
 *   RESTING   the waiter arms for another thread of its process, which is asleep already and looks at nothing
 *             itself: a descriptor's
 *   INSIDE    a publisher looks inside its lock, right behind its swap, as where its handler may end there
 *
 * Faults, each of which breaks one promise:
 *   NO_FENCE          P2 left out
 *   RELAXED_LOOK      P3 does not acquire
 *   NO_ARMING_FENCE   no fence at W4
 *   RELAXED_ARMING    the exchange of W3 is relaxed
 *   RELAXED_FIRST     W1 does not acquire
 */

#define PLACES 2
#define SLOTS 4
#define PROCESSES (PUBLISHERS + WAITERS)

#define SWAP_COUNT 0
#define ARMED 1

#include "weak-memory.pml"

byte holder;
byte swaps;
byte asleep; /* a bit for each waiter in the kernel's queue */

bool noWakeIsLost = true;

#define promise(name, condition) name = (condition); assert(name)

/* Publishing ------------------------------------------------------------------------------------- */

#ifdef RELAXED_LOOK
#define loadArmed load
#else
#define loadArmed loadAcquire
#endif

inline look()
{
#ifndef NO_FENCE
    fullFence(); /* P2 */
#endif
    loadArmed(ARMED, seen) /* P3 */
}

inline wake()
{
    loadAcquire(SWAP_COUNT, epoch);       /* P4 */
    d_step { forgetEarly(id); asleep = 0 } /* P5 */
    if
    :: seen != epoch + 1 -> exchange(ARMED, seen, 0, true, true, isDone) /* P6 */
    :: else
    fi
}

inline unlock()
{
    d_step { forgetEarly(id) }
    d_step { m_of[id].count == 0 -> holder = 0 }
}

proctype Publisher(byte id)
{
    byte seen, epoch;
    bool isDone;
    do
    :: d_step { holder == 0 && swaps < EPOCHS -> holder = id; swaps++; epoch = swaps; forgetEarly(id) }
       storeRelease(SWAP_COUNT, epoch); /* P1 */
#ifdef INSIDE
       look();
       unlock();
#else
       unlock();
       look();
#endif
       if
       :: seen != 0 -> wake()
       :: else
       fi;
       d_step { seen = 0; epoch = 0; isDone = false }
    :: swaps == EPOCHS -> break
    od
}

/* Waiting ---------------------------------------------------------------------------------------- */

#ifdef RELAXED_FIRST
#define loadFirst load
#else
#define loadFirst loadAcquire
#endif
#ifdef RELAXED_ARMING
#define isOrdered false
#else
#define isOrdered true
#endif

inline arm()
{
    do
    :: loadFirst(ARMED, seen);         /* W1 */
       loadAcquire(SWAP_COUNT, found); /* W2 */
       if
       :: found != epoch -> isArmed = false; break
       :: found == epoch && seen == epoch + 1 -> isArmed = true; break
       :: found == epoch && seen != epoch + 1 ->
              exchange(ARMED, seen, epoch + 1, isOrdered, isOrdered, isArmed); /* W3 */
              if
              :: isArmed -> break
              :: else
              fi
       fi
    od;
    if
    :: isArmed ->
#ifndef NO_ARMING_FENCE
           fullFence(); /* W4 */
#endif
           loadAcquire(SWAP_COUNT, found);
           isArmed = (found == epoch)
    :: else
    fi
}

/* The kernel compares and lays to sleep in one step, behind locks of its own. */
inline sleep()
{
    if
    :: d_step { memory[SWAP_COUNT] == epoch -> asleep = asleep | bit(id) }
       if
       :: !(asleep & bit(id))
       :: atomic { timeout -> promise(noWakeIsLost, memory[SWAP_COUNT] == epoch); break }
       fi
    :: memory[SWAP_COUNT] != epoch
    fi
}

proctype Waiter(byte id)
{
    byte epoch, seen, found;
    bool isArmed;
#ifdef RESTING
    /* The other thread sleeps through epoch 0. */
    arm();
    if
    :: isArmed ->
           if
           :: !(asleep & bit(id))
           :: atomic { timeout -> promise(noWakeIsLost, memory[SWAP_COUNT] == 0) }
           fi
    :: else /* a wake of its own */
    fi
#else
    do
    :: epoch == EPOCHS -> break
    :: epoch < EPOCHS ->
           arm();
           if
           :: isArmed -> sleep()
           :: else
           fi;
           d_step { forgetEarly(id); epoch = memory[SWAP_COUNT]; seen = 0; found = 0; isArmed = false }
    od
#endif
}

init
{
    byte who = 1;
    atomic {
        do
        :: who <= PUBLISHERS ->
               m_of[who].hopes = 3;
               run Publisher(who);
               run Memory(who);
               who++
        :: who > PUBLISHERS && who <= PROCESSES ->
               m_of[who].hopes = 3;
#ifdef RESTING
               asleep = asleep | bit(who);
#endif
               run Waiter(who);
               run Memory(who);
               who++
        :: else -> break
        od
    }
}
