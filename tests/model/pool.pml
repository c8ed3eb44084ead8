/* The pool's queue, its workers' loop, growth, retirement and shutdown, with every lock of theirs.
 *
 * Set by the runner (tests/model/check-models):
 *   WORKERS  at the start     ROOM  at most      TASKS  that the client queues
 *   CLIENT_WAKES  the client waits for its tasks as clients should: it calls wake() again and again
 *   RETIRE   a retirement is allowed at some moment (the threshold of 18 is 1 in here)
 *   SHUTDOWN gently, at some moment, then join
 *   BY_SECTION  what is done under one of the pool's own locks is one step, so that larger pools can be checked
 *   FAULT_...  a mistake made on purpose, that the check must find
 */
#define NONE 255
#ifdef RETIRE
#define IDS (ROOM + 1)           /* a retired worker may not have ended when the next one comes */
#else
#define IDS ROOM
#endif

byte queued;                    /* tasks in the queue */
byte live, busy, toRemove;      /* nbThreads, nbBusyThreads, nbThreadsToRemove */
byte threads;                   /* started and not ended: what join waits for */
bool begun;                     /* the first have started */
byte waiting, permits;          /* of the wake condition: sleepers, and those of them that were woken */
bool killed[IDS], running[IDS];
bool clientDone, joined;

#ifdef CLIENT_WAKES
byte ended;                     /* tasks that have run */
#define TASK_ENDED ended++
#else
#define TASK_ENDED skip
#endif

/* What a loss of a wake-up is told by; no check of the other claims needs to tell such states apart. */
#if !defined(CLIENT_WAKES) && !defined(SHUTDOWN)
bool pastQueue[IDS], leaving[IDS];
/* Of the last signal that anybody sent: nobody slept; every worker but the retiring ones had looked at the queue, and
 * not slept yet; and it was not an enqueue's that had just started a worker who is still there. */
bool isLost;
#define IS_PAST(past) pastQueue[me] = past
#define LEAVES leaving[me] = true
#define ENDED pastQueue[me] = false; leaving[me] = false
inline noteSignal(started) {
    isLost = waiting == 0 && (started == 0 || !running[started - 1] || leaving[started - 1]);
    do
    :: i < IDS -> isLost = isLost && (!running[i] || pastQueue[i] || leaving[i]); i++
    :: else -> break
    od;
    i = 0
}
#else
#define IS_PAST(past) skip
#define LEAVES skip
#define ENDED skip
#define noteSignal(started) skip
#endif

/* A lock is its holder. poolMutex, queueMutex, wakeMutex and busyLock are the pool's own four. */
byte monitorMutex = NONE;
#ifdef BY_SECTION
/* Nothing is lost by it: what such a section reads and writes is written under that same lock alone, but for one
 * access at most (`live`, `killed`, or the end of a thread). So what others do meanwhile may as well be done before
 * or after it (R. Lipton, Reduction, CACM 18:12, 1975). That no two of the locks are held at once, and that nobody
 * waits for one for ever, is for the checks without BY_SECTION. */
#define HOLDING(mutex, ...) atomic { __VA_ARGS__ }
#else
byte poolMutex = NONE, queueMutex = NONE, wakeMutex = NONE, busyLock = NONE;
byte held[IDS + 3];            /* how many of the pool's own four each process holds */
inline lock(mutex) { atomic { mutex == NONE -> mutex = me; held[me]++; assert(held[me] == 1) } }
inline unlock(mutex) { atomic { assert(mutex == me); mutex = NONE; held[me]-- } }
#define HOLDING(mutex, ...) lock(mutex); __VA_ARGS__; unlock(mutex)
#endif

/* `started` is the worker that the same enqueue has started, counted from 1, or 0 */
inline signalOne(started) {
#ifdef FAULT_TWO_LOCKS
    lock(queueMutex);
#endif
    HOLDING(wakeMutex,
        d_step {
            noteSignal(started);
            if :: waiting > 0 -> waiting--; permits++ :: else fi
        }
    );
#ifdef FAULT_TWO_LOCKS
    unlock(queueMutex)
#endif
}

inline wakeAll() {
#ifdef FAULT_NO_BROADCAST
    skip
#else
    HOLDING(wakeMutex, d_step { permits = permits + waiting; waiting = 0 })
#endif
}

inline killAll() {
    do :: i < IDS -> killed[i] = true; i++ :: else -> break od;
    i = 0
}

/* poolMutex is held. A number is free again when its thread has ended. */
inline launch() {
    atomic {
        do :: running[w] -> w++ :: else -> break od;
        running[w] = true; killed[w] = false; threads++; live++;
        run Worker(w)
    }
}

inline adjustPool() {
    HOLDING(busyLock, b = busy);
    if
    :: b + 1 >= live ->
        b = 0;
        HOLDING(poolMutex,
            if
            :: live >= 1 && live < ROOM && threads < IDS -> toRemove = 0; launch(); started = w + 1; w = 0
            :: else
            fi
        )
    :: else -> b = 0
    fi
}

proctype Worker(byte me) {
    byte b, i, w;
    bool got, ends;
    byte started;
again:
    if :: killed[me] -> goto out :: else fi;
    HOLDING(poolMutex,
        if
        :: toRemove > 0 && live > 0 -> atomic { live--; toRemove--; LEAVES; ends = true }
        :: else
        fi
    );
#ifdef FAULT_RETIRES_SILENTLY
    if :: ends -> goto out :: else fi;
#else
    if :: ends -> signalOne(0); goto out :: else fi;
#endif

    HOLDING(queueMutex, atomic { got = queued > 0; if :: got -> queued-- :: else -> IS_PAST(true) fi });
    if
    :: got ->
        got = false;
        signalOne(0);
        HOLDING(busyLock, busy++);
        atomic { monitorMutex == NONE -> monitorMutex = me };   /* the task has run */
        adjustPool();
        started = 0;
        monitorMutex = NONE;
        TASK_ENDED;
        HOLDING(busyLock, busy--);
        goto again
    :: else
    fi;
    if :: killed[me] -> IS_PAST(false); goto out :: else fi;
    HOLDING(wakeMutex,
        if
        :: killed[me] -> ends = true
        :: else -> waiting++
        fi;
        IS_PAST(false)
    );
    if :: ends -> goto out :: else fi;
end_asleep:
    atomic { permits > 0 -> permits-- };
    HOLDING(wakeMutex, skip);
    goto again;
out:
    atomic { running[me] = false; ENDED; threads-- }
}

inline enqueue() {
    if
    :: live < 1 -> skip
    :: else ->
        HOLDING(queueMutex, queued++);
        adjustPool();
        signalOne(started);
        started = 0
    fi
}

active proctype Client() {
    byte me = IDS, b, i, n, w;
    byte started;
    atomic {
        do :: live < WORKERS -> launch(); w = 0 :: else -> break od;
        begun = true
    }
    do
    :: n < TASKS -> enqueue(); n++
    :: else -> break
    od;
#ifdef CLIENT_WAKES
    do
    :: ended == TASKS -> break
    :: timeout ->               /* after a while, in which all others came to rest */
        HOLDING(queueMutex, b = queued);
        if :: b > 0 -> b = 0; signalOne(0) :: else fi
    od;
#endif
    clientDone = true
}

#ifdef RETIRE
active proctype Shrinker() {
    byte me = IDS + 1;
    begun;
#ifdef FAULT_LAST_MAY_RETIRE
    HOLDING(poolMutex, toRemove = live)
#else
    HOLDING(poolMutex, if :: live > 1 -> toRemove = live - 1 :: else fi)
#endif
}
#endif

#ifdef SHUTDOWN
active proctype Closer() {
    byte me = IDS + 2, i;
    begun;
    HOLDING(queueMutex, queued = 0);
    killAll();
    wakeAll();
    HOLDING(poolMutex, live = 0);
    /* join tells those whom a growth has added, or a retirement has moved, since */
    do
    :: threads == 0 -> joined = true; break
    :: timeout -> killAll(); wakeAll()
    od
}
#endif

/* When nothing moves any more. */
active proctype Watch() {
#ifdef SHUTDOWN
    timeout && clientDone && joined ->
    assert(threads == 0)
#else
    timeout && clientDone ->
    assert(live >= 1);
#ifdef ANY_LOSS
    assert(queued == 0)
#elif !defined(CLIENT_WAKES)
    /* A task may be left behind in these circumstances and no others. */
    assert(queued == 0 || isLost)
#endif
#endif
}

#ifdef CLIENT_WAKES
ltl allEnd { <> (ended == TASKS) }
#endif
#ifdef SHUTDOWN
ltl joins { <> joined }
#endif
