/* The scheduler of libktasync: submission, carriers that come, wait and go, the clock's rescue, a gentle shutdown.
 *
 * Each access to a shared number is a step of its own; what is done under one of the scheduler's mutexes is one step.
 * The core's queue and workers are reduced to what the scheduler relies on: a carrier that is queued there is run by
 * some worker, unless the wake-up is lost.
 *
 * Set by the runner (tests/model/check-models):
 *   WORKERS, which is also how many carriers there may be      TASKS  that are submitted, by two threads
 *   PATIENCE  a carrier that waits may give its worker back
 *   SHUTDOWN  at some moment
 *   FAULT_...  a mistake made on purpose, that the check must find
 */
short queue, ended;                      /* jobs that wait; that have run or were dropped */
short searching, idle, carriers, inCore; /* inCore: carriers in the core's queue */
byte tokens;                             /* workers that were woken */
bool parked[WORKERS], called[WORKERS], calledToLeave[WORKERS], stop[WORKERS];
bool wasStopped, gone;                   /* dropQueued was called; no worker serves any more */
byte submitters = 2;

inline abandonAll() { atomic { ended = ended + queue; queue = 0 } }

/* A wake-up of the core may be lost. */
inline wakeWorker() { if :: tokens < WORKERS -> tokens++ :: true fi }

inline start() {
    searching++;
    atomic {
        if
        :: gone -> refused = true
        :: else -> inCore++; wakeWorker()
        fi
    }
    if
    :: refused ->
        refused = false;
        searching--;
        atomic { carriers--; last = carriers == 0 }
        if :: last -> abandonAll() :: else fi
    :: else
    fi
}

inline callOne() {
    done = false;
    if :: wasStopped && gone -> abandonAll(); done = true :: else fi;
    if :: !done && searching != 0 -> done = true :: else fi;
    if
    :: !done && idle != 0 ->
#ifdef FAULT_COUNTS_BEFORE
        searching++;
#endif
        atomic {
            if
            :: idle > 0 ->
#ifndef FAULT_COUNTS_BEFORE
                searching++;
#endif
                c = 0;
                do :: !parked[c] -> c++ :: else -> break od;
                parked[c] = false; idle--; called[c] = true; done = true; c = 0
            :: else
            fi
        }
#ifdef FAULT_COUNTS_BEFORE
        if :: !done -> searching-- :: else fi
#endif
    :: else
    fi;
    if
    :: !done ->
        atomic { if :: carriers < WORKERS -> carriers++; done = true :: else fi }
        if :: done -> start() :: else fi
    :: else
    fi
}

proctype Submitter(byte number) {
    bool refused, last, done;
    byte c, i;
    do
    :: i < number -> queue++; callOne(); i++
    :: else -> break
    od;
    submitters--
}

proctype Worker(byte me) {
    bool refused, last, done, searches, got;
    byte c;
    do
    :: atomic { tokens > 0 -> tokens-- }
again:
        if
        :: atomic { inCore > 0 && !gone -> inCore-- }
        :: else -> goto asleep
        fi;
        searches = true;
turn:
        if :: stop[me] -> goto leave :: else fi;
        atomic { got = queue > 0; if :: got -> queue-- :: else fi }
        if
        :: got ->
            if
            :: searches ->
                searching--; searches = false;
                if :: queue > 0 -> callOne() :: else fi
            :: else
            fi;
            ended++;
            goto turn
        :: else
        fi;
        if :: !searches -> searching++; searches = true :: else fi;
        if :: queue > 0 -> goto turn :: else fi;
        atomic { parked[me] = true; idle++ }
        searching--; searches = false;
#ifndef FAULT_NO_SECOND_LOOK
        if
        :: queue > 0 || stop[me] ->
            atomic { got = parked[me]; if :: got -> parked[me] = false; idle-- :: else fi }
            if :: got -> searching++; searches = true; goto turn :: else fi
        :: else
        fi;
#endif
        if
        :: called[me] -> skip
#ifdef PATIENCE
        :: atomic { parked[me] -> parked[me] = false; idle-- } goto leave
#endif
        fi;
        called[me] = false;
        /* A shutdown's call is none to work. */
        if :: stop[me] && !searches -> atomic { if :: calledToLeave[me] -> skip :: else -> searches = true fi }
        :: else -> searches = true
        fi;
        goto turn;
leave:
        if :: searches -> searching--; searches = false :: else fi;
        atomic { carriers--; last = carriers == 0 }
        if
        :: stop[me] ->
            if :: last -> abandonAll() :: else fi
        :: else -> if :: queue > 0 -> callOne() :: else fi
        fi;
        goto again;
asleep:
        skip
    od
}

#ifdef SHUTDOWN
proctype Shutdown() {
    byte i;
    bool last;
    wasStopped = true;
    abandonAll();
    /* The carriers in the core's queue are destroyed. */
    do
    :: atomic { inCore > 0 -> inCore-- }
        searching--;
        atomic { carriers--; last = carriers == 0 }
        if :: last -> abandonAll() :: else fi
    :: else -> break
    od;
    do
    :: i < WORKERS ->
        stop[i] = true;
        atomic {
            if
            :: parked[i] -> parked[i] = false; idle--; calledToLeave[i] = true; called[i] = true
            :: else
            fi
        }
        i++
    :: else -> break
    od;
    gone = true
}
#endif

/* Only when nothing else can go on. */
proctype Clock() {
    do
    :: timeout ->
        if
#ifndef FAULT_NO_CLOCK
        :: inCore > 0 && !gone && tokens == 0 -> tokens++
#ifndef FAULT_CLOCK_KEEPS
        :: gone && queue > 0 -> abandonAll()
#endif
        :: else ->
#else
        :: true ->
#endif
            assert(submitters == 0 && ended == TASKS && queue == 0);
            assert(gone || searching == 0);
            break
        fi
    od
}

init {
    byte i;
    atomic {
        do :: i < WORKERS -> run Worker(i); i++ :: else -> break od;
        run Submitter(TASKS / 2);
        run Submitter(TASKS - TASKS / 2);
#ifdef SHUTDOWN
        run Shutdown();
#endif
        run Clock()
    }
}
