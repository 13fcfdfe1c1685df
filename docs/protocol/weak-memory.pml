/*
 * Memory in which stores overtake each other and loads are taken early. What the models of weak memory
 * (weak-*.pml) include; README.md beside this file tells what it allows and what not.
 *
 * Stores. Every process has a buffer. What lies there comes out in any order, with steps of all others in
 * between, but for these: stores to one place keep their order, a release store comes out behind all
 * that was stored before it, and nothing comes out before what stands in front of a release fence. A later
 * store may overtake a release store. The process itself sees what it has stored at once.
 *
 * Loads. Memory() takes a value early, for a process and a place of its `hopes`, and the next load of the
 * place gives that one. An acquire load, an acquire fence and a full fence throw away all that was
 * taken before. An acquire load may give an early value itself, and then throws away what was taken before
 * that one; a sequentially consistent one does not.
 *
 * An exchange that acquires is two steps, as the processors without a single instruction for it make it:
 * loads behind it may be taken from the first one on, and what it stores is seen with the second. So
 * it is no full fence. If somebody else stores to its place in between, the first step is made again.
 *
 * System calls on semaphores acquire and release, and are no full fences either: what they do lies behind
 * the locks of the kernel, into which stores from before and loads from behind may move.
 *
 * Who includes it defines PROCESSES (ids 1 and up), PLACES (16 at most), SLOTS (8 at most); its processes
 * are called `id`. The inlines are single steps, or say where others may come between.
 */

#define RELEASE 64
#define FENCE 128

typedef Buffer {
    byte store[SLOTS]; /* place, perhaps with RELEASE; or FENCE */
    byte value[SLOTS];
    byte count;
    byte early[PLACES];
    short isEarly; /* a bit for each place that was taken early */
    short before[PLACES]; /* those that were taken before it, of the same */
    short hopes;   /* a bit for each place that may be */
    byte reserved  /* place + 1 of an exchange between its two steps */
}

byte memory[PLACES];
Buffer m_of[PROCESSES + 1];

#define bit(number) (1 << (number))
#define placeAt(who, slot) (m_of[who].store[slot] & 63)

#define doesNotHold(who, slot, former)                                                              \
    ((former) >= (slot)                                                                             \
     || (m_of[who].store[former] != FENCE && placeAt(who, former) != placeAt(who, slot)))

/* The slots in front of it, as far as there are. */
#if SLOTS == 2
#define isHeldByNone(who, slot) doesNotHold(who, slot, 0)
#elif SLOTS == 4
#define isHeldByNone(who, slot)                                                                     \
    (doesNotHold(who, slot, 0) && doesNotHold(who, slot, 1) && doesNotHold(who, slot, 2))
#else
#define isHeldByNone(who, slot)                                                                     \
    (doesNotHold(who, slot, 0) && doesNotHold(who, slot, 1) && doesNotHold(who, slot, 2)            \
     && doesNotHold(who, slot, 3) && doesNotHold(who, slot, 4) && doesNotHold(who, slot, 5)         \
     && doesNotHold(who, slot, 6))
#endif

#define mayComeOut(who, slot)                                                                       \
    ((slot) < m_of[who].count && m_of[who].store[slot] != FENCE && isHeldByNone(who, slot)          \
     && (!(m_of[who].store[slot] & RELEASE) || (slot) == 0))

inline forgetEarly(who)
{
    m_of[who].isEarly = 0;
    at = 0;
    do
    :: at < PLACES -> m_of[who].early[at] = 0; m_of[who].before[at] = 0; at++
    :: else -> break
    od;
    at = 0
}

/* One was given, or is older than what this process has stored. */
inline forgetOne(who, where)
{
    m_of[who].isEarly = m_of[who].isEarly & ~bit(where);
    m_of[who].early[where] = 0;
    m_of[who].before[where] = 0;
    at = 0;
    do
    :: at < PLACES -> m_of[who].before[at] = m_of[who].before[at] & ~bit(where); at++
    :: else -> break
    od;
    at = 0
}

/* Whoever has reserved the place for an exchange begins it anew. */
inline becomesVisible(where, what)
{
    memory[where] = what;
    other = 1;
    do
    :: other <= PROCESSES ->
           if
           :: m_of[other].reserved == (where) + 1 -> forgetEarly(other)
           :: else
           fi;
           other++
    :: else -> break
    od;
    other = 0
}

inline removeSlot(who, slot)
{
    at = slot;
    do
    :: at + 1 < SLOTS ->
           m_of[who].store[at] = m_of[who].store[at + 1];
           m_of[who].value[at] = m_of[who].value[at + 1];
           at++
    :: else -> break
    od;
    m_of[who].store[SLOTS - 1] = 0;
    m_of[who].value[SLOTS - 1] = 0;
    m_of[who].count--;
    at = 0
}

/* Scratch of single steps; 0 between them. */
hidden byte at;
hidden byte other;
hidden byte shown;
hidden byte shownValue;

#ifndef looksOn
#define looksOn(where, what) skip /* what an onlooker says to a store that has just become visible */
#endif

inline comesOut(who, slot)
{
    shown = placeAt(who, slot);
    shownValue = m_of[who].value[slot];
    removeSlot(who, slot);
    /* A fence with nothing in front of it has done its work. */
    do
    :: m_of[who].count > 0 && m_of[who].store[0] == FENCE -> removeSlot(who, 0)
    :: else -> break
    od;
    becomesVisible(shown, shownValue);
    forgetOne(who, shown);
    looksOn(shown, shownValue)
}

#define out(who, slot) d_step { mayComeOut(who, slot) -> comesOut(who, slot) }
#define mayTake(who, where)                                                                         \
    ((m_of[who].hopes & bit(where)) && !(m_of[who].isEarly & bit(where)))
#define taken(who, where)                                                                           \
    d_step {                                                                                        \
        mayTake(who, where) ->                                                                      \
        m_of[who].early[where] = memory[where];                                                     \
        m_of[who].before[where] = m_of[who].isEarly;                                                \
        m_of[who].isEarly = m_of[who].isEarly | bit(where)                                          \
    }

proctype Memory(byte who)
{
end:
    do
    :: out(who, 0)
    :: out(who, 1)
#if SLOTS > 2
    :: out(who, 2)
    :: out(who, 3)
#endif
#if SLOTS > 4
    :: out(who, 4)
    :: out(who, 5)
    :: out(who, 6)
    :: out(who, 7)
#endif
    :: taken(who, 0)
    :: taken(who, 1)
#if PLACES > 2
    :: taken(who, 2)
    :: taken(who, 3)
#endif
#if PLACES > 4
    :: taken(who, 4)
    :: taken(who, 5)
    :: taken(who, 6)
#endif
    od
}

/* Stores ---------------------------------------------------------------------------------------- */

inline push(what, number)
{
    d_step {
        m_of[id].count < SLOTS -> /* else it waits */
        m_of[id].store[m_of[id].count] = what;
        m_of[id].value[m_of[id].count] = number;
        m_of[id].count++
    }
}

#define store(where, what) push(where, what)
#define storeRelease(where, what) push((where) | RELEASE, what)

inline releaseFence()
{
    if
    :: d_step {
           m_of[id].count > 0 && m_of[id].count < SLOTS ->
           m_of[id].store[m_of[id].count] = FENCE;
           m_of[id].count++
       }
    :: d_step { m_of[id].count == 0 -> skip }
    fi
}

/* Loads ----------------------------------------------------------------------------------------- */

inline give(where, into)
{
    at = m_of[id].count;
    do
    :: at > 0 && m_of[id].store[at - 1] != FENCE && placeAt(id, at - 1) == (where) ->
           into = m_of[id].value[at - 1];
           break
    :: at > 0 && (m_of[id].store[at - 1] == FENCE || placeAt(id, at - 1) != (where)) -> at--
    :: at == 0 ->
           if
           :: (m_of[id].isEarly & bit(where)) -> into = m_of[id].early[where]
           :: else -> into = memory[where]
           fi;
           break
    od;
    at = 0
}

inline load(where, into)
{
    d_step {
        give(where, into);
        forgetOne(id, where)
    }
}

inline loadAcquire(where, into)
{
    d_step {
        give(where, into);
        if
        :: (m_of[id].isEarly & bit(where)) ->
               other = 0;
               do
               :: other < PLACES && (m_of[id].before[where] & bit(other)) -> forgetOne(id, other); other++
               :: other < PLACES && !(m_of[id].before[where] & bit(other)) -> other++
               :: else -> break
               od;
               other = 0;
               forgetOne(id, where)
        :: else -> forgetEarly(id)
        fi
    }
}

/* Sequentially consistent: not before an exchange of that kind. */
inline loadNow(where, into)
{
    d_step { forgetEarly(id); give(where, into) }
}

inline acquireFence()
{
    d_step { forgetEarly(id) }
}

/* Sequentially consistent. */
inline fullFence()
{
    d_step { m_of[id].count == 0 -> forgetEarly(id) }
}

/* Exchanges ------------------------------------------------------------------------------------- */

#define isElsewhere(where, slot)                                                                    \
    ((slot) >= m_of[id].count || (m_of[id].store[slot] != FENCE && placeAt(id, slot) != (where)))

/* Nothing that is stored and not seen yet holds an exchange of this place. */
#if SLOTS == 2
#define mayOvertake(where) (isElsewhere(where, 0) && isElsewhere(where, 1))
#elif SLOTS == 4
#define mayOvertake(where)                                                                          \
    (isElsewhere(where, 0) && isElsewhere(where, 1) && isElsewhere(where, 2)                        \
     && isElsewhere(where, 3))
#else
#define mayOvertake(where) (m_of[id].count == 0)
#endif

inline exchange(where, from, to, acquires, releases, done)
{
    if
    :: acquires -> d_step { forgetEarly(id); m_of[id].reserved = (where) + 1 }
    :: else
    fi;
    if
    :: d_step {
           memory[where] == (from) && (m_of[id].count == 0 || (!(releases) && mayOvertake(where))) ->
           m_of[id].reserved = 0;
           becomesVisible(where, to);
           forgetOne(id, where);
           looksOn(where, to);
           done = true
       }
    :: d_step {
           memory[where] != (from) && mayOvertake(where) ->
           m_of[id].reserved = 0;
           if
           :: acquires -> forgetEarly(id)
           :: else
           fi;
           done = false
       }
    fi
}
