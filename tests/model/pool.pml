/* The pool's queue, its workers' loop, growth, retirement and shutdown, with every lock of theirs.
 *
 * Set by the runner (tests/model/check-models):
 *   WORKERS  at the start     ROOM  at most      TASKS  that the client queues
 *   CLIENT_WAKES  the client waits for its tasks as clients should: it calls wake() again and again
 *   RETIRE   a retirement is allowed at some moment (the threshold of 18 is 1 in here)
 *   SHUTDOWN gently, at some moment, then join
 *   FAULT_...  a mistake made on purpose, that the check must find
 */
#define NONE 255
#ifdef RETIRE
#define IDS (ROOM + 1)           /* a retired worker may not have ended when the next one comes */
#else
#define IDS ROOM
#endif

byte queued, ended;             /* tasks in the queue; tasks that have run */
byte live, busy, toRemove;      /* nbThreads, nbBusyThreads, nbThreadsToRemove */
byte made, gone;                /* threads started and ended: what join counts */
byte waiting, permits;          /* of the wake condition: sleepers, and those of them that were woken */
bool killed[IDS], running[IDS], pastQueue[IDS], leaving[IDS];
bool clientDone, joined;

/* Of the last signal that anybody sent: */
bool isLost;                    /* nobody slept */
bool allWerePast;               /* every worker but the retiring ones had looked at the queue, and not slept yet */
bool hasGrown;                  /* it was an enqueue's, which had just started a worker */

/* A lock is its holder. poolMutex, queueMutex, wakeMutex and busyLock are the pool's own four. */
byte poolMutex = NONE, queueMutex = NONE, wakeMutex = NONE, busyLock = NONE, monitorMutex = NONE;
byte held[IDS + 3];            /* how many of the pool's own four each process holds */

inline lock(mutex) { atomic { mutex == NONE -> mutex = me; held[me]++; assert(held[me] == 1) } }
inline unlock(mutex) { atomic { assert(mutex == me); mutex = NONE; held[me]-- } }

inline signalOne() {
#ifdef FAULT_TWO_LOCKS
    lock(queueMutex);
#endif
    lock(wakeMutex);
    atomic {
        isLost = waiting == 0;
        hasGrown = grew;
        allWerePast = true;
        i = 0;
        do
        :: i < IDS ->
            allWerePast = allWerePast && (!running[i] || pastQueue[i] || leaving[i]);
            i++
        :: else -> break
        od;
        if :: waiting > 0 -> waiting--; permits++ :: else fi
    }
#ifdef FAULT_TWO_LOCKS
    unlock(queueMutex);
#endif
    unlock(wakeMutex)
}

/* poolMutex is held. A number is free again when its thread has ended. */
inline launch() {
    atomic {
        w = 0;
        do :: running[w] -> w++ :: else -> break od;
        running[w] = true; killed[w] = false; pastQueue[w] = false; leaving[w] = false; made++; live++;
        run Worker(w)
    }
}

inline adjustPool() {
    grew = false;
    lock(busyLock); b = busy; unlock(busyLock);
    if
    :: b + 1 >= live ->
        lock(poolMutex);
        if
        :: live >= 1 && live < ROOM && made - gone < IDS -> toRemove = 0; launch(); grew = true
        :: else
        fi;
        unlock(poolMutex)
    :: else
    fi
}

proctype Worker(byte me) {
    byte b, i, w;
    bool got, grew;
again:
    if :: killed[me] -> goto out :: else fi;
    lock(poolMutex);
    if
    :: toRemove > 0 && live > 0 ->
        live--; toRemove--; leaving[me] = true;
        grew = false;
        unlock(poolMutex);
        signalOne();
        goto out
    :: else -> unlock(poolMutex)
    fi;

    lock(queueMutex);
    atomic { got = queued > 0; if :: got -> queued-- :: else -> pastQueue[me] = true fi }
    unlock(queueMutex);
    if
    :: got ->
        grew = false;
        signalOne();
        lock(busyLock); busy++; unlock(busyLock);
        atomic { monitorMutex == NONE -> monitorMutex = me };   /* the task has run */
        adjustPool();
        monitorMutex = NONE;
        ended++;
        lock(busyLock); busy--; unlock(busyLock);
        goto again
    :: else
    fi;
    if :: killed[me] -> pastQueue[me] = false; goto out :: else fi;
    lock(wakeMutex);
    if :: killed[me] -> pastQueue[me] = false; unlock(wakeMutex); goto out :: else fi;
    atomic { waiting++; pastQueue[me] = false; wakeMutex = NONE; held[me]-- }
end_asleep:
    atomic { permits > 0 -> permits-- }
    lock(wakeMutex);
    unlock(wakeMutex);
    goto again;
out:
    atomic { running[me] = false; gone++ }
}

inline enqueue() {
    if
    :: live < 1 -> skip
    :: else ->
        lock(queueMutex); queued++; unlock(queueMutex);
        adjustPool();
        signalOne()
    fi
}

active proctype Client() {
    byte me = IDS, b, i, n, w;
    bool grew;
    atomic {
        do :: live < WORKERS -> launch() :: else -> break od
    }
    do
    :: n < TASKS -> enqueue(); n++
    :: else -> break
    od;
#ifdef CLIENT_WAKES
    do
    :: ended == TASKS -> break
    :: timeout ->               /* after a while, in which all others came to rest */
        lock(queueMutex); b = queued; unlock(queueMutex);
        if :: b > 0 -> signalOne() :: else fi
    od;
#endif
    clientDone = true
}

#ifdef RETIRE
active proctype Shrinker() {
    byte me = IDS + 1;
    made > 0;
    lock(poolMutex);
#ifdef FAULT_LAST_MAY_RETIRE
    toRemove = live;
#else
    if :: live > 1 -> toRemove = live - 1 :: else fi;
#endif
    unlock(poolMutex)
}
#endif

#ifdef SHUTDOWN
active proctype Closer() {
    byte me = IDS + 2, i;
    made >= WORKERS;
    do
    :: lock(queueMutex); queued = 0; unlock(queueMutex);
        i = 0;
        do :: i < IDS -> killed[i] = true; i++ :: else -> break od;
#ifndef FAULT_NO_BROADCAST
        lock(wakeMutex);
        atomic { permits = permits + waiting; waiting = 0 }
        unlock(wakeMutex);
#endif
        lock(poolMutex); live = 0; unlock(poolMutex);
        /* join tells those whom a growth has added, or a retirement has moved, since */
        do
        :: made == gone -> joined = true; break
        :: timeout ->
            i = 0;
            do :: i < IDS -> killed[i] = true; i++ :: else -> break od;
#ifndef FAULT_NO_BROADCAST
            lock(wakeMutex);
            atomic { permits = permits + waiting; waiting = 0 }
            unlock(wakeMutex)
#endif
        od;
        break
    od
}
#endif

/* When nothing moves any more. */
active proctype Watch() {
#ifdef SHUTDOWN
    timeout && clientDone && joined ->
    assert(made == gone)
#else
    timeout && clientDone ->
    assert(live >= 1);
#ifdef ANY_LOSS
    assert(queued == 0)
#else
    /* A task may be left behind in these circumstances and no others. */
    assert(queued == 0 || (isLost && allWerePast && !hasGrown))
#endif
#endif
}

#ifdef CLIENT_WAKES
ltl allEnd { <> (ended == TASKS) }
#endif
#ifdef SHUTDOWN
ltl joins { <> joined }
#endif
