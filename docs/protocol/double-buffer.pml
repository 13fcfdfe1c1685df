/*
 * The double buffer's protocol as a model for the checker Spin. script/checks/model runs it;
 * README.md beside this file tells what it shows and how to read a counterexample.
 *
 * The inlines are named after the functions of PingPongBufferHandler and BufferLock, the words after
 * those of the management block.
 *
 * Weak memory. Spin runs one step after the other, processors and compilers do not. So a writer does
 * not store: it puts its relaxed stores into a set of pending ones, and storesComeOut() lets them out
 * in any order, with steps of the others in between. It stands wherever the code has a release (fence
 * or store) or a system call; what was pending before it is seen before whatever follows. Two stores
 * to one place keep their order. That stores wait until the next release loses nothing: in between
 * a writer does nothing that others could see. A reader's loads are a set in the same way, from the
 * acquire load of swapCount to the acquire fence and behind it.
 *
 * Loads of words that only the holder of the lock changes are no steps of their own.
 *
 * Death can come before each step. What is pending then is lost, for a compiler may have put it
 * behind what has come out; the kernel gives the semaphore back. A process that is stopped is one
 * that Spin does not choose for a while: whoever waits for it sees its bound run out.
 */

/* What takes part. */
#ifndef WRITERS
#define WRITERS 2
#endif
#ifndef READERS
#define READERS 1
#endif
#ifndef SETS
#define SETS 2 /* that each writer writes */
#endif
#ifndef READS
#define READS 1 /* that each reader brings to an end */
#endif
#ifndef DEATHS
#define DEATHS 0 /* at most so many processes die */
#endif
#ifndef RUN_OUTS
#define RUN_OUTS 0 /* at most so many waits for the semaphore run out */
#endif
/*
 * More that may happen:
 *   PARTIAL       writers may leave the second value out
 *   SWAP_INSIDE   writers may swap inside their write lock and go on writing
 *   SWAP_LATER    writers may leave the swap to somebody else
 *   RETRY         a swap that returned false is tried once more
 *
 * Faults, each of which breaks one promise:
 *   NO_WRITE_EPOCH, NO_RELEASE_FENCE, NO_ACQUIRE_FENCE   W1, W2, R3 left out
 *   NO_RELEASE_SWAP      S does not release
 *   RELAXED_WRITE_EPOCH  W1 does not release: it may be seen before the swap in front of it
 *   NO_COPY, NO_TAKE_BACK, NO_PUBLISHED_ALREADY, NO_HELD_READ, NO_SWAP_LOCK   left out
 *   FORGETFUL_SWAP       a swap that took sets back forgets that its thread had finished one
 *   UNMARKED_TAKE_BACK   the mark of the dead writer goes before all is back
 *   EARLY_FINISHED_COUNT a set counts as finished while the mark of its writer still stands
 *   NO_UNDO              the kernel does not give the semaphore back
 */

#define NOBODY 0
#define NONE 255
#define NO_EPOCH 254
#define OPTIMISTIC_ATTEMPTS 2

typedef Set {
    byte value[2]
}

typedef ManagementBuffer {
    byte swapCount;
    byte writeEpoch[2];
    byte copiedEpoch;
    byte finishedCount;
    byte writerPid
}

ManagementBuffer m_management;
Set m_buffers[2];
byte semaphore = NOBODY; /* who holds it */

#define buffer(epoch) m_buffers[(epoch) & 1]
#define bit(number) (1 << (number))

/* Who is told to die, a bit for each process. */
byte killed;
byte runOuts = RUN_OUTS;

/*
 * What an onlooker knows and no process uses. Every set that is written has a number, later ones a
 * higher one, and all values of it carry that number.
 */
byte lastSet;
Set published;      /* what readers are to see */
Set draft;          /* what the next swap is to publish */
bool isDrafted;     /* somebody has finished a set since the last swap */
byte wentOn = 255;  /* a bit for each reader: some writer moved since its wait ran out */

/* The promises. Each is only ever true, or the run ends there: pan then tells it by its name. */
bool acceptedSetIsWhole = true;
bool acceptedSetsGoForward = true;
bool heldReadSucceeds = true;
bool stoppedHolderDisturbsNobody = true;
bool thirdAttemptSucceeds = true;
bool onlyOneIsInside = true;
bool nothingOldComesBack = true;
bool leftOutValueIsKept = true;
bool publishedSetIsFinished = true;
bool onlyFinishedSetsAreLost = true;

#define promise(name, condition) name = (condition); assert(name)

/* BufferLock ------------------------------------------------------------------------------------ */

/* A wait runs out only while somebody holds the semaphore, who was stopped then. */
inline lock(isTaken)
{
    if
    :: atomic { semaphore == NOBODY -> semaphore = id; isTaken = true }
    :: atomic { semaphore != NOBODY && runOuts > 0 -> runOuts--; isTaken = false }
    fi
}

inline unlock()
{
    atomic {
        promise(onlyOneIsInside, semaphore == id);
        semaphore = NOBODY
    }
}

/* Stores of a writer ---------------------------------------------------------------------------- */

#define WRITER_PID 1
#define WRITE_EPOCH 2
#define COPY_FIRST 4
#define COPY_SECOND 8
#define COPIED_EPOCH 16
#define FIRST 32
#define SECOND 64
#define FINISHED_COUNT 128
#define NO_FINISHED_COUNT 256
#define SWAP_COUNT 512

#ifdef RELAXED_WRITE_EPOCH
#define isEpochHeldBack 0
#else
#define isEpochHeldBack (pending & SWAP_COUNT)
#endif

#define comesOut(store) (pending & (store)) -> pending = pending & ~(store)

/* Nobody but the holder of the lock stores anything. */
#ifdef NO_SWAP_LOCK
#define seen() wentOn = 255
#else
#define seen() wentOn = 255; promise(onlyOneIsInside, semaphore == id)
#endif

/* Words that only the holder of the lock looks at: when they come out matters to nobody unless it
 * dies,
 * see dieAsWriter(). */
#define LOCKED_WORDS (WRITER_PID | COPIED_EPOCH | FINISHED_COUNT | NO_FINISHED_COUNT)

inline lockedWordsComeOut()
{
    if
    :: (pending & WRITER_PID) -> m_management.writerPid = id
    :: else
    fi;
    if
    :: (pending & COPIED_EPOCH) -> m_management.copiedEpoch = epoch
    :: else
    fi;
    if
    :: (pending & FINISHED_COUNT) -> m_management.finishedCount = epoch + 1
    :: (pending & NO_FINISHED_COUNT) -> m_management.finishedCount = 0
    :: else
    fi
}

inline storesComeOut()
{
    do
    :: atomic {
           !isEpochHeldBack && comesOut(WRITE_EPOCH);
           m_management.writeEpoch[(epoch + 1) & 1] = epoch;
           seen()
       }
    :: atomic {
           comesOut(COPY_FIRST);
           buffer(epoch + 1).value[0] = buffer(epoch).value[0];
           seen()
       }
    :: atomic {
           comesOut(COPY_SECOND);
           buffer(epoch + 1).value[1] = buffer(epoch).value[1];
           seen()
       }
    :: atomic {
           !(pending & COPY_FIRST) && comesOut(FIRST);
           buffer(epoch + 1).value[0] = set;
           seen()
       }
    :: atomic {
           !(pending & COPY_SECOND) && comesOut(SECOND);
           buffer(epoch + 1).value[1] = set;
           seen()
       }
    :: atomic {
           comesOut(SWAP_COUNT);
           m_management.swapCount = epoch;
           seen();
           publish()
       }
    :: atomic { (pending & ~LOCKED_WORDS) == 0 -> lockedWordsComeOut(); pending = 0; break }
    od
}

/* What a swap shows to readers from now on, against what it should. */
inline publish()
{
    promise(nothingOldComesBack, isDrafted
                                 || (buffer(epoch).value[0] >= published.value[0]
                                     && buffer(epoch).value[1] >= published.value[1]));
    promise(leftOutValueIsKept, buffer(epoch).value[0] >= published.value[0]
                                && buffer(epoch).value[1] >= published.value[1]);
    promise(publishedSetIsFinished, buffer(epoch).value[0] == draft.value[0]
                                    && buffer(epoch).value[1] == draft.value[1]);
    published.value[0] = draft.value[0];
    published.value[1] = draft.value[1];
    isDrafted = false
}

/* PingPongBufferHandler, writing ---------------------------------------------------------------- */

#define isUnfinished() (m_management.writerPid != NOBODY)

inline markWriteEpoch()
{
#ifndef NO_WRITE_EPOCH
    pending = pending | WRITE_EPOCH;
#endif
#ifndef NO_RELEASE_FENCE
    storesComeOut()
#endif
}

inline beginWriting()
{
    pending = pending | WRITER_PID;
    markWriteEpoch();
    atomic {
        if
#ifndef NO_COPY
        :: m_management.copiedEpoch != epoch ->
               pending = pending | COPY_FIRST | COPY_SECOND | COPIED_EPOCH
#else
        :: m_management.copiedEpoch != epoch -> pending = pending | COPIED_EPOCH
#endif
        :: else
        fi
    }
}

/* isComplete becomes false if a set that another writer had finished goes with it. */
inline takeBackUnfinishedSet()
{
    markWriteEpoch();
    atomic {
        pending = pending | COPY_FIRST | COPY_SECOND | COPIED_EPOCH | NO_FINISHED_COUNT;
        isComplete = (m_management.finishedCount != epoch + 1);
        promise(onlyFinishedSetsAreLost, isComplete || isDrafted)
    }
#ifndef UNMARKED_TAKE_BACK
    storesComeOut();
#endif
    atomic {
        m_management.writerPid = NOBODY;
        draft.value[0] = published.value[0];
        draft.value[1] = published.value[1];
        isDrafted = false
    }
    storesComeOut()
}

inline lockForWrite()
{
    lock(isHeld);
    if
    :: atomic { isHeld -> epoch = m_management.swapCount }
       if
#ifndef NO_TAKE_BACK
       :: isUnfinished() -> takeBackUnfinishedSet()
#endif
       :: else
       fi;
       beginWriting()
    :: !isHeld
    fi
}

/* What this writer has written belongs to what the next swap is to publish. */
inline addToDraft()
{
    draft.value[0] = set;
    draft.value[1] = (isPartial -> draft.value[1] : set);
    isDrafted = true
}

inline writeValues()
{
    atomic {
        lastSet++;
        set = lastSet;
        pending = pending | FIRST;
        if
        :: pending = pending | SECOND; isPartial = false
#ifdef PARTIAL
        :: isPartial = true
#endif
        fi
    }
}

inline unlockForWrite()
{
#ifdef EARLY_FINISHED_COUNT
    pending = pending | FINISHED_COUNT;
#endif
    storesComeOut();
    atomic {
        m_management.writerPid = NOBODY;
        finishedSet = epoch;
        addToDraft();
        pending = pending | FINISHED_COUNT
    }
    storesComeOut();
    unlock()
}

/* Looks at the note about this thread's finished set and takes it, as the code does. isComplete
 * becomes false if somebody has taken that set back and nobody has finished one since. */
inline lookWhatBecameOfTheSet()
{
#ifndef NO_PUBLISHED_ALREADY
    isPublishedAlready = (finishedSet != NONE && finishedSet != epoch
                          && m_management.copiedEpoch != epoch && !isUnfinished());
#endif
    isComplete = !(finishedSet == epoch && m_management.finishedCount != epoch + 1);
    finishedSet = NONE
}

inline swapBuffers()
{
#ifdef NO_SWAP_LOCK
    isHeld = true;
#else
    lock(isHeld);
#endif
    if
    :: atomic {
           isHeld;
           epoch = m_management.swapCount;
           lookWhatBecameOfTheSet()
       }
       if
       :: !isPublishedAlready ->
              if
#ifndef NO_TAKE_BACK
              :: isComplete && isUnfinished() -> takeBackUnfinishedSet()
#endif
              :: else
              fi;
              if
              :: atomic { isComplete -> epoch++; pending = pending | SWAP_COUNT }
                 storesComeOut()
              :: atomic {
                     !isComplete;
#ifndef FORGETFUL_SWAP
                     finishedSet = NO_EPOCH
#else
                     skip
#endif
                 }
              fi
       :: else
       fi;
#ifndef NO_SWAP_LOCK
       unlock();
#endif
       atomic { isSwapped = isComplete; isPublishedAlready = false }
    :: atomic { !isHeld -> isSwapped = false }
    fi
}

/* The same inside the write lock, which this thread keeps. Nothing can be unfinished but its own set,
 * and that it publishes as far as it has got. */
inline swapBuffersInside()
{
#ifndef NO_RELEASE_SWAP
    storesComeOut();
#endif
    atomic {
        finishedSet = NONE;
        addToDraft();
        epoch++;
        pending = pending | SWAP_COUNT
    }
    beginWriting()
}

/* PingPongBufferHandler, reading ---------------------------------------------------------------- */

#define LOAD_FIRST 1
#define LOAD_SECOND 2
#define LOAD_WRITE_EPOCH 4

#ifdef NO_ACQUIRE_FENCE
#define isFencePassed 1
#else
#define isFencePassed !(loads & (LOAD_FIRST | LOAD_SECOND))
#endif

inline lockForRead()
{
    ranOut = false;
#ifndef NO_HELD_READ
    if
    :: repeatsInARow >= OPTIMISTIC_ATTEMPTS ->
           lock(holdsSemaphore);
           if
           :: atomic { !holdsSemaphore -> ranOut = true; runOutCount++; wentOn = wentOn & ~bit(id) }
           :: holdsSemaphore
           fi
    :: else
    fi;
#endif
    atomic {
        epoch = m_management.swapCount;
        expected.value[0] = published.value[0];
        expected.value[1] = published.value[1];
        isWhole = true;
        loads = LOAD_FIRST | LOAD_SECOND | LOAD_WRITE_EPOCH
    }
}

/* The application's reading, and the load of writeEpoch at the unlock. */
inline readAndUnlock()
{
    do
    :: atomic {
           (loads & LOAD_FIRST) -> loads = loads & ~LOAD_FIRST;
           isWhole = isWhole && buffer(epoch).value[0] == expected.value[0]
       }
    :: atomic {
           (loads & LOAD_SECOND) -> loads = loads & ~LOAD_SECOND;
           isWhole = isWhole && buffer(epoch).value[1] == expected.value[1]
       }
    :: atomic {
           (loads & LOAD_WRITE_EPOCH) && isFencePassed -> loads = loads & ~LOAD_WRITE_EPOCH;
           repeat = m_management.writeEpoch[epoch & 1] > epoch
       }
    :: atomic { loads == 0 -> break }
    od
}

inline judgeRead()
{
    promise(acceptedSetIsWhole, repeat || isWhole);
    promise(heldReadSucceeds, !(repeat && holdsSemaphore));
    promise(stoppedHolderDisturbsNobody, !(repeat && ranOut) || (wentOn & bit(id)));
    promise(thirdAttemptSucceeds, !repeat || repeatsInARow < OPTIMISTIC_ATTEMPTS + runOutCount);
    if
    :: !repeat ->
#if READS > 1
           promise(acceptedSetsGoForward, expected.value[0] >= accepted.value[0]
                                          && expected.value[1] >= accepted.value[1]);
           accepted.value[0] = expected.value[0];
           accepted.value[1] = expected.value[1];
#endif
           reads++;
           repeatsInARow = 0;
           runOutCount = 0
    :: else -> repeatsInARow++
    fi;
    expected.value[0] = 0;
    expected.value[1] = 0;
    repeat = false;
    epoch = 0
}

inline unlockForRead()
{
    readAndUnlock();
    atomic { judgeRead() }
    if
    :: holdsSemaphore -> unlock(); holdsSemaphore = false
    :: else
    fi
}

/* Processes ------------------------------------------------------------------------------------- */

/* SEM_UNDO: the kernel gives the semaphore back. */
inline undo()
{
#ifndef NO_UNDO
    if
    :: semaphore == id -> semaphore = NOBODY
    :: else
    fi
#else
    skip
#endif
}

inline mayBeLost(stores)
{
    if
    :: (pending & (stores)) -> pending = pending & ~(stores)
    :: skip
    fi
}

/* Of the words that were pending some have come out and some have not. */
inline dieAsWriter()
{
    atomic {
        (killed & bit(id)) ->
        mayBeLost(WRITER_PID);
        mayBeLost(COPIED_EPOCH);
        mayBeLost(FINISHED_COUNT | NO_FINISHED_COUNT);
        lockedWordsComeOut();
        pending = 0;
        undo()
    }
}

inline publishSets()
{
    swapBuffers();
#ifdef RETRY
    if
    :: !isSwapped -> swapBuffers()
    :: else
    fi;
#endif
}

inline writeSet()
{
    lockForWrite();
    if
    :: isHeld ->
           writeValues();
#ifdef SWAP_INSIDE
           if
           :: swapBuffersInside(); writeValues()
           :: skip
           fi;
#endif
           unlockForWrite();
           if
           :: publishSets()
#ifdef SWAP_LATER
           :: skip
#endif
           fi
    :: !isHeld ->
#ifndef FORGETFUL_LOCK
           if
           :: finishedSet == NONE -> finishedSet = NO_EPOCH
           :: else
           fi;
#endif
           publishSets()
    fi;
    /* Nothing that the next set could depend on. */
    atomic { isSwapped = false; isHeld = false; isComplete = false; set = 0; epoch = 0 }
}

proctype Writer(byte id)
{
    byte sets, epoch, set;
    byte finishedSet = NONE; /* the note: epoch in which this thread finished a set */
    short pending;
    bool isHeld, isComplete, isSwapped, isPartial, isPublishedAlready;
    {
        do
        :: sets < SETS ->
               sets++;
               writeSet()
        :: else -> break
        od
    }
#if DEATHS > 0
    unless {
        dieAsWriter()
    }
#endif
}

proctype Reader(byte id)
{
    byte reads, epoch, loads, repeatsInARow, runOutCount;
    bool holdsSemaphore, ranOut, repeat, isWhole;
    Set expected, accepted;
    {
        do
        :: reads < READS ->
               lockForRead();
               unlockForRead()
        :: else -> break
        od
    }
#if DEATHS > 0
    unless {
        atomic { (killed & bit(id)) -> undo() }
    }
#endif
}

/* Ids begin with 1, as process ids do: writers first, then readers. */
init
{
    byte id = 1;
    byte deaths;
    atomic {
        do
        :: id <= WRITERS -> run Writer(id); id++
        :: id > WRITERS && id <= WRITERS + READERS -> run Reader(id); id++
        :: else -> break
        od;
        id = 1
    }
    do
    :: deaths < DEATHS ->
           atomic {
               id = 1;
               do
               :: id < WRITERS + READERS -> id++
               :: killed = killed | bit(id); break
               od;
               id = 1;
               deaths++
           }
    :: break
    od
}
