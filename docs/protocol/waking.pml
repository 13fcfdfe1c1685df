/*
 * A reader that sleeps until the next set, as a model for the checker Spin. script/checks/model runs it;
 * README.md beside this file tells what it shows and how to read a counterexample.
 *
 * The steps are those of SetWaiting, P1 to P6 and W1 to W5 in SetWaiting.cpp, one for each system call
 * and each access to a word that processes share. Publishers exclude each other for P1 alone: what
 * follows comes behind their unlock, beside the swaps of others.
 *
 * Memory. P1 is a plain store, which may come out later than the load of P3 unless a full fence or a
 * system call lets it out; the next publisher sees it all the same, by the lock. Compare and exchange
 * is a full fence itself.
 *
 * The kernel compares and lays to sleep in one step. The slice ends when nobody else can move: that is
 * when a wake-up was lost, unless the publisher of the newest set has died over it. Death can come before
 * each step. A process that is stopped is one that Spin does not choose for a while.
 */

/* What takes part: publishers have the ids from 1, waiters those behind them. */
#ifndef PUBLISHERS
#define PUBLISHERS 2
#endif
#ifndef WAITERS
#define WAITERS 2
#endif
#ifndef DISPLAYS
#define DISPLAYS 0 /* 1: a process that waits by a descriptor, a thread that shows and one that tells it */
#endif
#ifndef EPOCHS
#define EPOCHS 3 /* swaps of all publishers together */
#endif
#ifndef DEATHS
#define DEATHS 0 /* at most so many processes die */
#endif
#ifndef EARLY
#define EARLY 0 /* at most so many sleeps end though nobody wakes */
#endif
#ifndef NONSENSE
#define NONSENSE 0 /* so many times somebody else writes into the word */
#endif
/*
 * Faults, each of which breaks one promise:
 *   NO_FENCE          P2 left out
 *   EXCHANGED_WORD    P3 takes the word away, and there is no P6
 *   STORED_CLEARING   P6 stores 0 without comparing
 *   LATE_EPOCH        P4 comes behind P5
 *   STORED_ARMING     W3 stores without comparing
 *   NO_SLICE          no sleep has a bound
 *   NO_LOOK_BEHIND    the look behind W4 left out
 *   UNTOLD_SLEEPER    who acknowledges does not arm for the thread that rests in the kernel
 *   NO_LATE_WAKE      nor wakes it where the epoch is over already
 */

#define NOBODY 0
#define bit(number) (1 << (number))

/* The management block. */
byte swapCount;
byte armed;

byte storing = NOBODY; /* the publisher whose P1 has not come out yet */
byte swaps;            /* what the lock makes all publishers know */
byte asleep;           /* a bit for each waiter in the kernel's queue */
byte killed;
byte early = EARLY;

/* What an onlooker knows: who has published the newest set and has not come to its end yet. */
byte newest = NOBODY;

bool noWakeIsLost = true;

#define promise(name, condition) name = (condition); assert(name)

active proctype Memory()
{
end:
    do
    :: atomic { storing != NOBODY -> swapCount++; storing = NOBODY }
    od
}

inline fence()
{
    storing != id
}

/* A process sees its own store at once. */
#define ownSwapCount() (storing == id -> swapCount + 1 : swapCount)

inline wakeAll()
{
    fence();
    atomic {
        asleep = 0;
#ifndef LATE_EPOCH
        hasWoken()
#endif
    }
}

inline hasWoken()
{
    if
    :: newest == id -> newest = NOBODY
    :: else
    fi
}

inline clear()
{
    if
    :: atomic { seen != epoch + 1 -> fence() }
#ifdef STORED_CLEARING
       armed = 0
#else
       atomic {
           if
           :: armed == seen -> armed = 0
           :: else
           fi
       }
#endif
    :: seen == epoch + 1
    fi
}

inline look()
{
#ifdef EXCHANGED_WORD
    atomic { fence(); seen = armed; armed = 0 }
#else
    seen = armed; /* P3 */
#endif
    if
    :: atomic { seen == 0 -> hasWoken() }
    :: seen != 0 ->
#ifndef LATE_EPOCH
           epoch = ownSwapCount(); /* P4 */
#endif
           wakeAll(); /* P5 */
#ifdef LATE_EPOCH
           atomic { epoch = ownSwapCount(); hasWoken() }
#endif
#ifndef EXCHANGED_WORD
           clear() /* P6 */
#endif
    fi;
    atomic { seen = 0; epoch = 0 }
}

proctype Publisher(byte id)
{
    byte seen, epoch;
    {
        do
        :: atomic { swaps < EPOCHS && storing == NOBODY -> swaps++; storing = id; newest = id } /* P1 */
#ifndef NO_FENCE
           fence(); /* P2 */
#endif
           look()
        :: swaps == EPOCHS -> break
        od
    }
#if DEATHS > 0
    unless { atomic { (killed & bit(id)) -> seen = 0; epoch = 0 } }
#endif
}

/* Comes back when the waiter has to look. Nothing is lost to whoever knows the newest set by another. */
inline sleep(isKnown)
{
    if
    :: atomic { swapCount == epoch -> asleep = asleep | bit(id) }
       if
       :: !(asleep & bit(id))
       :: atomic { early > 0 && (asleep & bit(id)) -> early--; asleep = asleep & ~bit(id) }
#ifndef NO_SLICE
       :: atomic {
              timeout && swapCount != epoch ->
#if NONSENSE == 0
              promise(noWakeIsLost, newest != NOBODY || (isKnown));
#endif
              asleep = asleep & ~bit(id)
          }
#endif
       :: timeout && swapCount == epoch -> goto over /* nobody is left to publish */
       fi
    :: swapCount != epoch
    fi
}

inline arm()
{
#ifndef STORED_ARMING
    atomic {
        if
        :: seen == epoch + 1 -> isArmed = true
        :: seen != epoch + 1 && armed == seen -> armed = epoch + 1; isArmed = true
        :: else
        fi
    }
#else
    if
    :: seen == epoch + 1
    :: seen != epoch + 1 -> armed = epoch + 1
    fi;
    isArmed = true
#endif
#ifndef NO_LOOK_BEHIND
    ;
    if
    :: isArmed && swapCount != epoch -> isArmed = false /* W4 */
    :: else
    fi
#endif
}

proctype Waiter(byte id)
{
    byte seen, epoch;
    bool isArmed;
    {
        do
        :: epoch == EPOCHS -> break
        :: epoch < EPOCHS ->
               seen = armed; /* W1 */
               if
               :: atomic { swapCount != epoch -> epoch = swapCount; seen = 0 } /* W2 */
               :: swapCount == epoch ->
                      arm(); /* W3 */
                      if
                      :: atomic { isArmed -> isArmed = false; seen = 0 }
                         sleep(false) /* W5 */
                      :: atomic { !isArmed -> seen = 0 }
                      fi
               fi
        od;
over:   skip
    }
#if DEATHS > 0
    unless { atomic { (killed & bit(id)) -> asleep = asleep & ~bit(id); seen = 0; epoch = 0; isArmed = false } }
#endif
}

#if DISPLAYS > 0
/*
 * What ProcessDataWatcher does for a descriptor. The teller rests in the kernel without having armed:
 * a thread of its process arms for it when it has taken in what was told last. Words of the process,
 * behind its mutex but for the event.
 */
bool isTaken;   /* the mutex */
bool isAwaited; /* the display has taken in what it was told, and wants to be told again */
bool isResting; /* the teller sleeps, or is about to, without having armed */
bool event;     /* what the descriptor says */
byte told;      /* the epoch that the display knows */

bool newestIsShown = true;

inline take()
{
    atomic { !isTaken -> isTaken = true }
}

inline give()
{
    isTaken = false
}

inline rest()
{
    isResting = true;
    epoch = swapCount;
    give();
    sleep(told == swapCount);
    take();
    isResting = false
}

/* Until there is another epoch than the one that was told, as any waiter. */
inline waitForSet()
{
    epoch = told;
    do
    :: swapCount != epoch -> break
    :: swapCount == epoch ->
           give();
           seen = armed;
           if
           :: swapCount != epoch
           :: swapCount == epoch -> arm()
           fi;
           if
           :: isArmed -> isArmed = false; sleep(told == swapCount)
           :: !isArmed
           fi;
           take()
    od
}

inline tell()
{
    isAwaited = false;
    give();
    event = true;
    take();
    if
    :: isAwaited -> event = false
    :: !isAwaited
    fi
}

proctype Teller(byte id)
{
    byte seen, epoch;
    bool isArmed;
    take();
    do
    :: if
       :: !isAwaited -> rest()
       :: isAwaited
       fi;
       give();
       atomic { isAwaited && !isTaken -> isTaken = true };
       waitForSet();
       if
       :: swapCount == told
       :: swapCount != told -> tell()
       fi
    od;
over: promise(newestIsShown, told == swapCount || newest != NOBODY)
}

/* For the teller that rests. */
inline armForTeller()
{
    epoch = told;
    do
    :: isArmed -> break
    :: !isArmed ->
           seen = armed;
           if
           :: swapCount == epoch -> arm()
           :: swapCount != epoch ->
#ifndef NO_LATE_WAKE
                  asleep = 0;
#endif
                  break
           fi
    od;
    isArmed = false
}

proctype Display(byte id)
{
    byte seen, epoch;
    bool isArmed;
    event = true;
end:
    do
    :: event ->
           take();
           event = false;
           told = swapCount;
           isAwaited = true;
           if
#ifndef UNTOLD_SLEEPER
           :: isResting -> armForTeller()
#else
           :: isResting
#endif
           :: !isResting
           fi;
           give()
    od
}
#endif

#if NONSENSE > 0
active proctype Stranger()
{
    byte left = NONSENSE;
    do
    :: atomic { left > 0 -> left--; armed = 0 }
    :: atomic { left > 0 -> left--; armed = 1 }
    :: atomic { left > 0 -> left--; armed = EPOCHS }
    :: atomic { left > 0 -> left--; armed = 255 }
    :: left == 0 -> break
    od
}
#endif

init
{
    byte id = 1;
    byte deaths;
    atomic {
        do
        :: id <= PUBLISHERS -> run Publisher(id); id++
        :: id > PUBLISHERS && id <= PUBLISHERS + WAITERS -> run Waiter(id); id++
        :: else -> break
        od;
#if DISPLAYS > 0
        run Teller(id);
        run Display(id + 1);
#endif
        id = 1
    }
    do
    :: deaths < DEATHS ->
           atomic {
               id = 1;
               do
               :: id < PUBLISHERS + WAITERS -> id++
               :: killed = killed | bit(id); break
               od;
               id = 1;
               deaths++
           }
    :: break
    od
}
