/*
 * A creator that replaces a region whose write lock stays with a writer, as a model for the checker Spin.
 * script/checks/model runs it; README.md beside this file tells what it shows and how to read a
 * counterexample.
 *
 * There are two memories and two sets of semaphores, the former ones and the next. Whoever attaches takes
 * the memory behind the name and then the set behind the key, so that it may get the former memory and the
 * next set. The steps of a lock are those of write-lock.pml, with less between them: stores come out at
 * once here, but for the creator's word that closes the former memory.
 *
 * Nobody dies and no wait runs out. A process that is stopped is one that Spin does not choose for a while.
 */

/* What takes part. */
#ifndef USERS
#define USERS 3
#endif
#ifndef ROUNDS
#define ROUNDS 2 /* locks that each user takes */
#endif
#ifndef LEASES
#define LEASES 3 /* at most so many are made, with the one that there is at first */
#endif
/*
 * More that may happen:
 *   ONE_LONG     only user 1 takes all its locks, the others one each
 *   NO_OWNER     nobody has attached before the creator comes; else user 1 owns a lease by then
 *
 * Faults, each of which breaks one promise:
 *   NOT_CLOSED   the creator does not close the former memory
 *   NO_FENCE     no fence between the closing and the look whether an owner is inside
 *   NO_WAIT      the creator does not wait for an owner inside
 *   NO_LOOK      an owner does not look whether its memory was closed
 *   REOPENED     the making of a lease clears `wanted` whatever it says
 *   FOREIGN_SET  leases are made in a set that was not made for this memory
 */

#define NOBODY 0
#define FREE 0
#define IDLE 1
#define INSIDE 2

#ifdef ONE_LONG
#define roundsOf(user) ((user) == 1 -> ROUNDS : 1)
#else
#define roundsOf(user) ROUNDS
#endif

#define NOTHING 0
#define SOMEBODY_WAITS 1
#define CLOSED 2

#define FORMER 1
#define NEXT 2

/* The memories. */
byte wordState[3];
byte wordNumber[3];
byte wordSet[3];
byte wanted[3];
byte madeFor[3]; /* the set that the creator made */

/* The sets of semaphores. */
bool isThere[3];
byte writeHolder[3];
bool lease[3];

/* What stands behind the name of the memory, and behind the key of the set. */
byte named = FORMER;
byte keyed = FORMER;

byte storing; /* the memory whose closing has not come out yet */

/* What an onlooker knows. */
byte lastNumber;
byte inside[3];

bool onlyOneIsInside = true;
bool nobodyWritesOn = true;

#define promise(name, condition) name = (condition); assert(name)

active proctype Memory()
{
end:
    do
    :: atomic { storing != 0 -> wanted[storing] = CLOSED; storing = 0 }
    od
}

/* The creator ------------------------------------------------------------------------------------ */

inline close()
{
#ifndef NOT_CLOSED
    storing = FORMER;
#ifndef NO_FENCE
    storing == 0;
#endif
#endif
#ifndef NO_WAIT
    wordState[FORMER] != INSIDE || !lease[FORMER]
#else
    skip
#endif
}

active proctype Creator()
{
    close();
    named = NEXT;
    /* It takes the write semaphore of the set that it removes. */
    atomic { writeHolder[FORMER] == NOBODY -> isThere[FORMER] = false; keyed = 0 }
    atomic { isThere[NEXT] = true; keyed = NEXT }
    madeFor[NEXT] = NEXT
}

/* A user ----------------------------------------------------------------------------------------- */

#define isWord(state) (wordState[memory] == (state) && wordNumber[memory] == own)
#define isOfOtherSet() (wordSet[memory] != set)

inline giveLeaseBack()
{
    atomic {
        own = 0;
        if
        :: isThere[leaseSet] -> lease[leaseSet] = false
        :: else
        fi
    }
}

inline enterByLease()
{
    atomic {
        if
        :: own != 0 && isWord(IDLE) -> wordState[memory] = INSIDE; isLeased = true
        :: else
        fi
    }
#ifndef NO_LOOK
    if
    :: isLeased && wanted[memory] == CLOSED -> isLeased = false; giveLeaseBack()
    :: else
    fi
#endif
}

/* The set is gone. There is another one for this memory only as long as that has its name. */
inline follow()
{
    if
    :: own != 0 -> giveLeaseBack()
    :: else
    fi;
    if
    :: named == memory && keyed != 0 && keyed != set ->
           set = keyed;
           if
           :: named == memory
           :: else -> hasFailed = true
           fi
    :: else -> hasFailed = true
    fi
}

/* With Write. */
inline lookAtWord()
{
    if
    :: atomic { wordState[memory] == FREE -> isHeld = true }
    :: atomic {
           wordState[memory] != FREE && isOfOtherSet() ->
           if
           :: isThere[set] -> wordState[memory] = FREE
           :: else
           fi;
           isHeld = true
       }
    :: atomic { wordState[memory] == IDLE && !isOfOtherSet() -> wordState[memory] = FREE }
       atomic { lease[set] = false; isHeld = true }
    :: atomic {
           wordState[memory] == INSIDE && !isOfOtherSet() ->
           if
           :: wanted[memory] == NOTHING -> wanted[memory] = SOMEBODY_WAITS
           :: else
           fi
       }
       if
       :: wordState[memory] == INSIDE -> waitForOwner()
       :: wordState[memory] != INSIDE
       fi
    fi
}

inline waitForOwner()
{
    writeHolder[set] = NOBODY;
    if
    :: atomic {
           isThere[set] && writeHolder[set] == NOBODY && !lease[set] ->
           writeHolder[set] = id;
           if
           :: wordState[memory] == INSIDE -> wordState[memory] = FREE
           :: else
           fi
       }
       isHeld = true
    :: !isThere[set] -> hasFailed = true
    :: timeout -> mustTake = true
    fi
}

inline lockPlainly()
{
    mustTake = true;
    do
    :: isHeld || hasFailed -> break
    :: !isHeld && !hasFailed && mustTake ->
           if
           :: atomic {
                  isThere[set] && writeHolder[set] == NOBODY ->
                  writeHolder[set] = id;
                  mustTake = false
              }
           :: !isThere[set] -> follow()
           fi
    :: !isHeld && !hasFailed && !mustTake -> lookAtWord()
    od
}

inline unlockByLease()
{
    if
    :: wanted[memory] != NOTHING -> giveLeaseBack()
    :: wanted[memory] == NOTHING ->
           atomic {
               if
               :: isWord(INSIDE) -> wordState[memory] = IDLE
               :: else -> own = 0
               fi
           }
           if
           :: wanted[memory] != NOTHING && own != 0 ->
                  atomic {
                      if
                      :: isWord(IDLE) -> wordState[memory] = INSIDE; done = true
                      :: else -> own = 0; done = false
                      fi
                  }
                  if
                  :: done -> giveLeaseBack()
                  :: else
                  fi
           :: else
           fi
    fi
}

#ifdef FOREIGN_SET
#define isDue() (lastNumber < LEASES && wanted[memory] != CLOSED)
#else
#define isDue() (lastNumber < LEASES && wanted[memory] != CLOSED && madeFor[memory] == set)
#endif

inline makeLease()
{
    atomic {
        if
        :: isThere[set] -> lease[set] = false
        :: else
        fi
    }
    atomic {
#ifdef REOPENED
        wanted[memory] = NOTHING;
#else
        if
        :: wanted[memory] == SOMEBODY_WAITS -> wanted[memory] = NOTHING
        :: else
        fi;
#endif
        lastNumber++;
        own = lastNumber;
        leaseSet = set
    }
    atomic { wordNumber[memory] = own; wordSet[memory] = set; wordState[memory] = INSIDE }
    atomic {
        if
        :: isThere[set] && !lease[set] -> lease[set] = true; writeHolder[set] = NOBODY; done = true
        :: else -> own = 0; wordState[memory] = FREE; done = false
        fi
    }
    if
    :: done -> unlockByLease()
    :: else -> writeHolder[set] = NOBODY
    fi
}

inline unlockPlainly()
{
    if
    :: writeHolder[set] = NOBODY
    :: isDue() -> makeLease()
    fi
}

inline attach()
{
#ifndef NO_OWNER
    if
    :: atomic { id == 1 -> memory = FORMER; set = FORMER; own = 1; leaseSet = FORMER }
    :: id != 1 -> memory = named; set = keyed
    fi
#else
    memory = named;
    set = keyed
#endif
}

proctype User(byte id)
{
    byte memory, set, own, leaseSet, round;
    bool isLeased, isHeld, hasFailed, mustTake, done;
    attach();
    do
    :: round == roundsOf(id) -> break
    :: round < roundsOf(id) ->
           round++;
           isLeased = false;
           isHeld = false;
           hasFailed = false;
           enterByLease();
           if
           :: !isLeased -> lockPlainly()
           :: isLeased -> isHeld = true
           fi;
           if
           :: isHeld ->
                  atomic {
                      promise(onlyOneIsInside, inside[memory] == 0);
                      promise(nobodyWritesOn, !isLeased || named == memory);
                      inside[memory]++
                  }
                  inside[memory]--;
                  if
                  :: isLeased -> unlockByLease()
                  :: !isLeased -> unlockPlainly()
                  fi
           :: !isHeld
           fi
    od
}

init
{
    atomic {
        isThere[FORMER] = true;
        madeFor[FORMER] = FORMER;
#ifndef NO_OWNER
        lastNumber = 1;
        wordState[FORMER] = IDLE;
        wordNumber[FORMER] = 1;
        wordSet[FORMER] = FORMER;
        lease[FORMER] = true;
#endif
        byte id = 1;
        do
        :: id <= USERS -> run User(id); id++
        :: id > USERS -> break
        od
    }
}
