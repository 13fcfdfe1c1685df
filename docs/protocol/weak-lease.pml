/*
 * The write lock that stays with its writer, on weak memory, as a model for the checker Spin.
 * script/checks/model runs it; README.md beside this file tells what it shows and how to read a
 * counterexample.
 *
 * The steps are those of WriteLease and BufferLock, each load, store and exchange with the order that it has
 * there, on the memory of weak-memory.pml. It begins with a lease whose owner is outside. The threads from 1
 * belong to its process, the last one is of another process: a comer, or a creator that replaces the region.
 * Nobody dies, and no wait runs out; how leases are made, given back late or left by the dead is in
 * write-lock.pml, what else becomes of a replaced region in replaced-region.pml.
 */

#ifndef OWNERS
#define OWNERS 1 /* threads of the process that has the lease */
#endif
#ifndef ROUNDS
#define ROUNDS 2 /* locks that each of them takes; the comer takes one */
#endif
/*
 * Otherwise:
 *   REPLACED   a creator closes the memory, instead of the comer
 *
 * Faults. A sequentially consistent operation beside a weaker one is worth no more than an acquire and
 * release: the order of two is an order of both.
 *   UNPAIRED_ENTER       the owner's exchange on its way in only acquires
 *   RELAXED_ENTER        the owner's exchange on its way in does not acquire
 *   RELAXED_CLOSED_LOOK  its look whether the memory was closed, behind that, is relaxed
 *   RELAXED_LEAVE        the exchange on its way out does not release
 *   UNPAIRED_LEAVE       it acquires and releases alone
 *   RELAXED_LOOK         its look at `wanted` behind that is relaxed
 *   RELAXED_WISH         the comer's exchange of `wanted` is relaxed
 *   NO_WISH_FENCE        no fence behind it
 *   RELAXED_SECOND_LOOK  the comer's second look at the word is relaxed
 *   RELAXED_REVOCATION   the comer's exchange of the word is relaxed
 *   RELAXED_FIRST_LOOK   its first look does not acquire
 *   NO_CLOSING_FENCE     no fence behind the creator's store of `wanted`
 */

#define PLACES 4
#define SLOTS 2
#define PROCESSES (OWNERS + 1)

#define WORD 0
#define WANTED 1
#define CONTENT 2 /* stands for all that is written inside the lock */

#define FREE 0
#define IDLE 1
#define INSIDE 2

#define NOBODY_WAITS 0
#define SOMEBODY_WAITS 1
#define CLOSED 2

#include "weak-memory.pml"

byte writeHolder;
bool lease = true;
bool isOwned = true; /* what the process of the owner believes */

byte inside;
byte lastContent;
bool isReplaced; /* the creator goes on to make the next region */

bool onlyOneIsInside = true;
bool nothingWrittenIsMissed = true;
bool aWishIsSeen = true;
bool nobodyWritesOn = true;

#define promise(name, condition) name = (condition); assert(name)

#ifdef RELAXED_ENTER
#define enterAcquires false
#else
#define enterAcquires true
#endif
#if defined(RELAXED_ENTER) || defined(UNPAIRED_ENTER)
#define enterReleases false
#define loadClosed loadAcquire
#elif defined(RELAXED_CLOSED_LOOK)
#define enterReleases true
#define loadClosed load
#else
#define enterReleases true
#define loadClosed loadNow
#endif

#ifdef RELAXED_LEAVE
#define leaveIsOrdered false
#else
#define leaveIsOrdered true
#endif
#if defined(RELAXED_LOOK)
#define loadWanted load
#elif defined(RELAXED_LEAVE) || defined(UNPAIRED_LEAVE)
#define loadWanted loadAcquire
#else
#define loadWanted loadNow
#endif

#ifdef RELAXED_WISH
#define wishIsOrdered false
#else
#define wishIsOrdered true
#endif
#if defined(RELAXED_SECOND_LOOK)
#define loadWordAnew load
#elif defined(RELAXED_WISH)
#define loadWordAnew loadAcquire
#else
#define loadWordAnew loadNow
#endif

#ifdef RELAXED_REVOCATION
#define revocationIsOrdered false
#else
#define revocationIsOrdered true
#endif
#ifdef RELAXED_FIRST_LOOK
#define loadWord load
#else
#define loadWord loadAcquire
#endif

inline write()
{
    d_step {
        promise(onlyOneIsInside, inside == 0);
        promise(nobodyWritesOn, !isReplaced);
        inside = id
    }
    load(CONTENT, number);
    d_step {
        promise(nothingWrittenIsMissed, number == lastContent);
        lastContent++;
        inside = 0;
        number = 0
    }
    store(CONTENT, lastContent)
}

/* Clears the lease semaphore, whoever it is: a system call. */
inline clearLease()
{
    d_step { forgetEarly(id) }
    d_step { m_of[id].count == 0 -> lease = false }
}

inline giveWriteBack()
{
    d_step { forgetEarly(id) }
    d_step { m_of[id].count == 0 -> writeHolder = 0 }
}

/* By lease --------------------------------------------------------------------------------------- */

inline enter()
{
    exchange(WORD, IDLE, INSIDE, enterAcquires, enterReleases, isDone);
    if
    :: isDone ->
           loadClosed(WANTED, number);
           if
           :: number == CLOSED -> isDone = false; isOwned = false; clearLease()
           :: else
           fi;
           number = 0
    :: else
    fi
}

inline leave()
{
    load(WANTED, number);
    if
    :: number != NOBODY_WAITS -> isOwned = false; clearLease()
    :: else ->
           exchange(WORD, INSIDE, IDLE, leaveIsOrdered, leaveIsOrdered, isDone);
           loadWanted(WANTED, number);
           if
           :: number != NOBODY_WAITS ->
                  exchange(WORD, IDLE, INSIDE, true, true, isDone);
                  if
                  :: isDone -> isOwned = false; clearLease()
                  :: else
                  fi
           :: else
           fi
    fi;
    d_step { number = 0; isDone = false }
}

/* An owner that has lost its lease takes the semaphore, as comers do. Here it has come to its end. */
proctype Owner(byte id)
{
    byte rounds, number;
    bool isDone;
    do
    :: rounds < ROUNDS && isOwned ->
           rounds++;
           enter();
           if
           :: isDone -> write(); leave()
           :: else
           fi
    :: rounds == ROUNDS || !isOwned -> break
    od
}

/* By the semaphore ------------------------------------------------------------------------------- */

inline takeWrite()
{
    d_step { writeHolder == 0 -> writeHolder = id; forgetEarly(id) }
    m_of[id].count == 0
}

/* The slice that ends a wait in the code may not be what helps. */
inline waitForOwner()
{
    giveWriteBack();
    if
    :: d_step { writeHolder == 0 && !lease -> writeHolder = id; forgetEarly(id) }
       load(WORD, found);
       if
       :: found == INSIDE -> exchange(WORD, INSIDE, FREE, true, true, isDone)
       :: else
       fi;
       isHeld = true
    :: atomic { timeout -> promise(aWishIsSeen, !(memory[WORD] == IDLE && lease)) }
       break
    fi
}

inline wish()
{
    exchange(WANTED, NOBODY_WAITS, SOMEBODY_WAITS, wishIsOrdered, wishIsOrdered, isDone);
#ifndef NO_WISH_FENCE
    fullFence();
#endif
    loadWordAnew(WORD, found);
    if
    :: found == INSIDE -> waitForOwner()
    :: else
    fi
}

proctype Comer(byte id)
{
    byte found, number;
    bool isDone, isHeld;
    takeWrite();
    loadWord(WORD, found);
    do
    :: isHeld -> break
    :: !isHeld && found == FREE -> isHeld = true
    :: !isHeld && found == IDLE ->
           exchange(WORD, IDLE, FREE, revocationIsOrdered, revocationIsOrdered, isDone);
           if
           :: isDone -> clearLease(); isHeld = true
           :: else -> loadWord(WORD, found)
           fi
    :: !isHeld && found == INSIDE -> wish()
    od;
    if
    :: isHeld -> write(); giveWriteBack()
    :: else
    fi
}

/* The creator ------------------------------------------------------------------------------------ */

proctype Creator(byte id)
{
    byte found;
    storeRelease(WANTED, CLOSED);
#ifndef NO_CLOSING_FENCE
    fullFence();
#endif
    loadAcquire(WORD, found);
    if
    :: found == INSIDE -> d_step { !lease || memory[WORD] != INSIDE -> isReplaced = true }
    :: else -> isReplaced = true
    fi
}

init
{
    byte who = 1;
    atomic {
        memory[WORD] = IDLE;
        do
        :: who <= OWNERS -> m_of[who].hopes = 6; run Owner(who); run Memory(who); who++
        :: else -> break
        od;
        m_of[who].hopes = 5;
#ifdef REPLACED
        run Creator(who);
#else
        run Comer(who);
#endif
        run Memory(who)
    }
}
