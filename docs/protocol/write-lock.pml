/*
 * The write lock with its lease as a model for the checker Spin. script/checks/model runs it;
 * README.md beside this file tells what it shows and how to read a counterexample.
 *
 * The steps are those of BufferLock and WriteLease, one for each system call and each access to a
 * word that processes share.
 *
 * Left out are the looks with which a comer passes the time before he waits, at a semaphore that is taken or
 * at an owner who is inside: they change nothing, and the last of them is as good as a later first one.
 *
 * Memory. Every thread has a store buffer: a plain store goes there and comes out later, one behind
 * the other, with steps of others in between; the thread itself sees it at once. A compare and
 * exchange, a full fence and a system call let all of it out first. What is still inside when a
 * process dies is lost.
 *
 * Death can come before each step, to a process with all its threads; the kernel gives back what it
 * took with undo. A process that is stopped is one that Spin does not choose for a while: whoever
 * waits for it may see its bound run out.
 */

/* What takes part. Threads 1 to THREADS; those from SHARED on belong to one process. */
#ifndef THREADS
#define THREADS 3
#endif
#ifndef ROUNDS
#define ROUNDS 2 /* locks that each thread takes */
#endif
#ifndef LEASES
#define LEASES 2 /* at most so many are made */
#endif
#ifndef DEATHS
#define DEATHS 0 /* at most so many processes die */
#endif
#ifndef RUN_OUTS
#define RUN_OUTS 0 /* at most so many waits run out */
#endif
#ifndef STOPS
#define STOPS 0 /* at most so many slices end while somebody could still move */
#endif
/*
 * More that may happen:
 *   SHARED=n    the threads from n on are threads of one process, which share a lease
 *   ONE_LONG    only the first thread takes all its locks, the others one each; it does not die
 *   FORKED=n    the last thread is a child that the process n forks at any moment, and has its words
 *
 * Faults, each of which breaks one promise:
 *   STORED_IDLE          the owner's unlock stores instead of exchanging
 *   NO_WANTED_FENCE      no fence between the wish and the second look
 *   NO_SECOND_LOOK       no second look at all
 *   STORED_REVOCATION    a revocation stores 0 without comparing
 *   NO_GIVING_BACK       an owner does not look whether somebody waits
 *   GIVING_BACK_IDLE     an owner gives its lease back without owning the word
 *   LATE_CLEARING        the making clears the lease semaphore behind the word
 *   EARLY_WORD           the making leaves the word idle before the lease is held
 *   NO_LEASE_UNDO        the kernel does not give a lease back
 *   SAME_NUMBER          all leases have one number
 *   CLEARED_UNSEEN       a stale word is cleared by who has not seen the lease gone
 *   CHILD_OWNS           a forked child takes the lease of its parent for its own
 *   LATE_FORGETTING      an owner that is too late to give a lease back forgets whatever its process owns
 */

#define NOBODY 0
#define FREE 0
#define IDLE 1
#define INSIDE 2

#ifdef SHARED
#define processOf(thread) ((thread) >= SHARED -> SHARED : (thread))
#else
#define processOf(thread) (thread)
#endif
#define bit(number) (1 << (number))
#ifdef ONE_LONG
#define roundsOf(thread) ((thread) == 1 -> ROUNDS : 1)
#define FIRST_VICTIM 2
#else
#define roundsOf(thread) ROUNDS
#define FIRST_VICTIM 1
#endif

/* The set of semaphores. */
byte writeHolder = NOBODY; /* thread; the semaphore Write is 1 unless this is NOBODY */
bool lease;                /* the semaphore Lease */
byte leaseUndo = NOBODY;   /* process in whose name the kernel gives it back; NOBODY after a SETVAL */

/* The management block. */
byte wordState = FREE;
byte wordNumber;
bool wanted;
byte content; /* stands for all that is written inside the lock */

/* Words of a process. */
byte ownLease[THREADS + 2]; /* number of the lease that it believes to own; 0: none */
#ifdef FORKED
bool isInherited; /* by the child: the lease is noted with the number of another process */
#endif

byte killed;
byte runOuts = RUN_OUTS;
byte stops = STOPS;

/* What an onlooker knows and no process uses. */
byte lastNumber;
byte ownerOf[LEASES + THREADS + 1]; /* process that made the lease of this number */
byte inside;              /* a bit for each thread between lock and unlock */
byte lastContent;

bool onlyOneIsInside = true;
bool nothingWrittenIsMissed = true;
bool aWishIsSeen = true;
bool nobodyWaitsForTheDead = true;
bool nobodyWaitsForNobody = true;

#define promise(name, condition) name = (condition); assert(name)

/* Stores ---------------------------------------------------------------------------------------- */

/* At most four at once: word, content, wanted, word; each place is stored to once between two barriers.
 * The order of their coming out is that of the program. */
#define CONTENT 1
#define WANTED 2
#define WORD 3

inline store(place, number)
{
    d_step {
        buffered[count] = place;
        bufferedValue[count] = number;
        count++
    }
}

/* The oldest store comes out. */
inline oneComesOut()
{
    d_step {
        if
        :: buffered[0] == CONTENT -> content = bufferedValue[0]
        :: buffered[0] == WANTED -> wanted = bufferedValue[0]
        :: buffered[0] == WORD ->
               wordNumber = bufferedValue[0] >> 2;
               wordState = bufferedValue[0] & 3
        fi;
        buffered[0] = buffered[1];
        bufferedValue[0] = bufferedValue[1];
        buffered[1] = buffered[2];
        bufferedValue[1] = bufferedValue[2];
        buffered[2] = buffered[3];
        bufferedValue[2] = bufferedValue[3];
        buffered[3] = 0;
        bufferedValue[3] = 0;
        count--
    }
}

#define word(state, number) (((number) << 2) | (state))

inline barrier()
{
    do
    :: count > 0 -> oneComesOut()
    :: count == 0 -> break
    od
}

/* Where a plain store may linger: others move in between, or it comes out now. */
inline mayComeOut()
{
    do
    :: count > 0 -> oneComesOut()
    :: break
    od
}

/* The lock -------------------------------------------------------------------------------------- */

inline enter()
{
    atomic {
        promise(onlyOneIsInside, inside == 0);
        inside = bit(id);
        promise(nothingWrittenIsMissed, content == lastContent);
        lastContent = (lastContent + 1) & 3
    }
    store(CONTENT, lastContent)
}

inline leave()
{
    inside = inside & ~bit(id)
}

#define isOurs(state) (wordState == (state) && wordNumber == number)

inline compareAndExchange(from, to, done)
{
    atomic {
        barrier();
        if
        :: isOurs(from) -> wordState = to; done = true
        :: else -> done = false
        fi
    }
}

/* Under Write: takes the lease away from an owner that is not inside. */
inline revoke()
{
#ifdef STORED_REVOCATION
    atomic { wordState = FREE; wordNumber = 0; done = true }
#else
    atomic {
        if
        :: isOurs(IDLE) -> wordState = FREE; wordNumber = 0; done = true
        :: else -> done = false
        fi
    }
#endif
    if
    :: done -> atomic { lease = false; leaseUndo = NOBODY } isHeld = true
    :: else
    fi
}

/* The owner of the lease is inside: says so and waits for its end. */
inline waitForOwner()
{
    store(WANTED, 1);
#ifndef NO_WANTED_FENCE
    barrier();
#endif
#ifndef NO_SECOND_LOOK
    atomic { isStillInside = (wordState == INSIDE && wordNumber == number) }
#else
    isStillInside = true;
#endif
    if
    :: !isStillInside
    :: isStillInside ->
           atomic { barrier(); writeHolder = NOBODY }
           if
           :: atomic {
                  writeHolder == NOBODY && !lease -> writeHolder = id;
                  barrier()
              }
              /* Whoever made a lease held Write: this word is left over. */
              if
              :: atomic { wordState == IDLE -> number = wordNumber } revoke()
              :: atomic { wordState == INSIDE -> store(WORD, word(FREE, 0)); isHeld = true }
              :: atomic { wordState == FREE -> isHeld = true }
              fi
           :: atomic {
                  timeout ->
                  looksAnew = true;
#if DEATHS == 0 && STOPS == 0
                  promise(aWishIsSeen, !(wordState == IDLE && wanted));
                  promise(nobodyWaitsForNobody,
                          !(wordState == INSIDE && lease && inside == 0));
#endif
                  promise(nobodyWaitsForTheDead,
                          !(wordState == INSIDE && lease
                            && (killed & bit(ownerOf[wordNumber]))))
              }
           :: atomic { stops > 0 && lease -> stops--; looksAnew = true }
           :: atomic { runOuts > 0 && lease -> runOuts--; hasFailed = true }
           fi
    fi
}

inline lockPlainly()
{
    do
    :: isHeld || hasFailed -> break
    :: else ->
           if
           :: atomic { writeHolder == NOBODY -> writeHolder = id; barrier() }
           :: atomic { writeHolder != NOBODY && runOuts > 0 -> runOuts--; hasFailed = true }
           fi;
           looksAnew = false;
           do
           :: isHeld || hasFailed || looksAnew -> break
           :: else ->
                  if
                  :: atomic { wordState == FREE -> isHeld = true }
                  :: atomic { wordState == IDLE -> number = wordNumber } revoke()
                  :: atomic { wordState == INSIDE -> number = wordNumber }
#ifdef CLEARED_UNSEEN
                     store(WORD, word(FREE, 0)); isHeld = true
#else
                     waitForOwner()
#endif
                  fi
           od
    od
}

#if defined(FORKED) && !defined(CHILD_OWNS)
#define ownsLease() (ownLease[processOf(id)] != 0 && !(id == THREADS && isInherited))
#else
#define ownsLease() (ownLease[processOf(id)] != 0)
#endif

inline lock()
{
    isLeased = false; isHeld = false; hasFailed = false;
    if
    :: ownsLease() ->
           number = ownLease[processOf(id)];
           compareAndExchange(IDLE, INSIDE, isLeased)
    :: else
    fi;
    if
    :: isLeased -> isHeld = true
    :: else -> lockPlainly()
    fi
}

/* By the owner, which has the word. The word stays, left over, until somebody has seen the lease
 * gone. */
inline giveLeaseBack()
{
    ownLease[processOf(id)] = 0;
    atomic { barrier(); lease = false; leaseUndo = NOBODY }
}

/* The exchange comes before the look, and the owner of an idle word takes it back first. */
inline goOut()
{
#ifdef STORED_IDLE
    leave();
    store(WORD, word(IDLE, number));
    mayComeOut();
#else
    atomic {
        number = ownLease[processOf(id)];
        compareAndExchange(INSIDE, IDLE, done);
        leave()
    }
#endif
#ifndef NO_GIVING_BACK
    if
    :: wanted ->
#ifdef GIVING_BACK_IDLE
           giveLeaseBack()
#else
           compareAndExchange(IDLE, INSIDE, done);
           if
           :: done -> giveLeaseBack()
           :: else ->
#ifdef LATE_FORGETTING
                  ownLease[processOf(id)] = 0
#else
                  skip
#endif
           fi
#endif
    :: else
    fi
#else
    skip
#endif
}

/* A wish that is seen at once needs no exchange. */
inline unlockLeased()
{
#ifdef NO_GIVING_BACK
    goOut()
#else
    if
    :: wanted ->
           ownLease[processOf(id)] = 0;
           atomic { barrier(); leave(); lease = false; leaseUndo = NOBODY }
    :: !wanted -> goOut()
    fi
#endif
}

inline clearLease()
{
    atomic { barrier(); lease = false; leaseUndo = NOBODY }
}

inline makeLease()
{
    atomic {
#ifdef SAME_NUMBER
        number = 1;
        lastNumber++;
#else
        lastNumber++;
        number = lastNumber;
#endif
        ownerOf[number] = processOf(id)
    }
#ifndef LATE_CLEARING
    clearLease();
#endif
    store(WANTED, 0);
    mayComeOut();
#ifdef EARLY_WORD
    store(WORD, word(IDLE, number));
#else
    store(WORD, word(INSIDE, number));
#endif
    mayComeOut();
#ifdef LATE_CLEARING
    clearLease();
#endif
#ifdef FORKED
    atomic {
        if
        :: id == THREADS -> isInherited = false
        :: else
        fi;
        ownLease[processOf(id)] = number
    }
#else
    ownLease[processOf(id)] = number;
#endif
    atomic {
        barrier();
        if
        :: !lease ->
               lease = true;
#ifdef NO_LEASE_UNDO
               leaseUndo = NOBODY;
#else
               leaseUndo = processOf(id);
#endif
               writeHolder = NOBODY
        :: else -> assert(false)
        fi
    }
#ifdef EARLY_WORD
    leave()
#else
    unlockLeased()
#endif
}

inline unlock()
{
    if
    :: isLeased -> unlockLeased()
    :: else ->
           if
           :: atomic { barrier(); leave(); writeHolder = NOBODY }
           :: lastNumber < LEASES -> makeLease()
           fi
    fi
}

/* Whoever takes part ---------------------------------------------------------------------------- */

active [THREADS] proctype Thread()
{
    byte id;
    byte round = 0;
    byte number = 0;
    byte count = 0;
    byte buffered[4];
    byte bufferedValue[4];
    bool isLeased, isHeld, hasFailed, isStillInside, looksAnew, done;
    id = _pid + 1;
    {
#ifdef FORKED
        if
        :: atomic { id == THREADS -> ownLease[id] = ownLease[FORKED]; isInherited = true }
        :: id != THREADS
        fi;
#endif
        do
        :: round < roundsOf(id) ->
               round++;
               lock();
               if
               :: isHeld ->
                      enter();
                      mayComeOut();
                      unlock()
               :: else
               fi
        :: else -> break
        od;
        barrier()
    } unless {
        (killed & bit(processOf(id)))
    }
}

#if DEATHS > 0
active proctype Killer()
{
    byte deaths = 0;
    byte victim;
    do
    :: deaths < DEATHS ->
           deaths++;
           select(victim : FIRST_VICTIM .. THREADS);
           atomic {
               killed = killed | bit(processOf(victim));
               if
               :: writeHolder != NOBODY && (killed & bit(processOf(writeHolder))) ->
                      writeHolder = NOBODY
               :: else
               fi;
               if
               :: leaseUndo != NOBODY && (killed & bit(leaseUndo)) ->
                      lease = false;
                      leaseUndo = NOBODY
               :: else
               fi;
               victim = 1;
               do
               :: victim <= THREADS ->
                      if
                      :: (killed & bit(processOf(victim))) && (inside & bit(victim)) ->
                             /* Whoever comes next takes back what is half written. */
                             inside = inside & ~bit(victim);
                             lastContent = content
                      :: else
                      fi;
                      victim++
               :: else -> victim = 0; break
               od
           }
    :: break
    od
}
#endif
