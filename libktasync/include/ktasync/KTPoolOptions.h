/// \file
/// How large a pool is to be, and how it is to end.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <ktasync/export.h>

namespace KT {

/// The processors that this process may use: those of its affinity mask, or less if a control group
/// (version 1 or 2) grants it less time, rounded up. At least 1. Reads files under /proc and /sys;
/// what can't be read grants all. Any thread may call it. Throws std::bad_alloc.
///
/// \return  processors
/// \ingroup ktasync
KTASYNC_EXPORT int availableProcessors();

/// What a KTScopedPool is made with. Its constructor refuses invalid ones with a KTError that names
/// the field.
/// \code
/// KT::KTPoolOptions options;
/// options.maxThreads = 64;
/// options.queued = KT::KTPoolOptions::Queued::drop;
/// KT::KTScopedPool pool(options);
/// \endcode
/// A value, as safe as its fields.
///
/// \ingroup ktasync
struct KTPoolOptions {
    /// Workers to start with: 1 to 65536. Not set: one a processor, and `maxThreads` at most.
    std::optional<int> threads;

    /// Workers that the pool may grow to: `threads` to 65536. Not set: 64, or 8 a processor if that
    /// is more, or `threads`.
    std::optional<int> maxThreads;

    /// What makes a pool grow.
    enum class Growth {
        adaptive,  ///< tasks that block: as many run at once as keep the processors busy
        monitor    ///< the core's rule: nearly all workers are busy, whatever with
    };
    /// What makes this pool grow. An adaptive one shrinks, too.
    Growth growth = Growth::adaptive;

    /// Of Growth::monitor: the pool looks whether it should grow when tasks come in, and each time
    /// that this many have ended; 0: only when they come in.
    int monitorPeriod = 10;

    /// Milliseconds after which an adaptive pool has workers retire that were idle for as long; it
    /// keeps `threads`, and 18. 1 or more; never if negative.
    int idleTimeoutMs = 10000;

    /// Microseconds that a worker without a task looks for the next one before it sleeps, as long
    /// as a processor has nothing else to do. A task then begins sooner by what a wake-up takes,
    /// for that much processor time. 0 or more.
    int spinUs = 0;

    /// Tasks from outside that may wait in the queue; 0: any number. What `submit`, `post` and
    /// their batches hand to the pool counts, a batch comes in as a whole when there is room for
    /// one; tasks of groups, loops and `then` come in whatever waits. 0 or more.
    int maxQueued = 0;

    /// What may become of a task for which there is no room.
    enum class WhenFull {
        block,    ///< the submitter waits for room; in a task of the pool it runs the task itself
        runHere,  ///< the submitter runs it
        refuse    ///< it never runs: `post` says false, the future of `submit` throws KTCancelled
    };
    /// What becomes of a task while `maxQueued` others wait.
    WhenFull whenFull = WhenFull::block;

    /// What may become of them.
    enum class Queued {
        finish,  ///< they are run, as long as `finishTimeoutMs` allows
        drop     ///< they never run: their futures throw KTCancelled
    };
    /// What becomes of the tasks in the queue when the pool is closed.
    Queued queued = Queued::finish;

    /// Milliseconds that they may take to finish, with those that run; the rest is dropped then.
    /// No limit if negative.
    int finishTimeoutMs = -1;

    /// Milliseconds that closing waits for them before a log record says so, and for which. Never
    /// if negative.
    int reportAfterMs = 10000;

    /// Milliseconds that tasks may go on when they have been asked to stop. 0 or more.
    int stopTimeoutMs = 10000;

    /// What may be done about them.
    enum class Stuck {
        keepWaiting,  ///< for as long as it takes
        leave,        ///< let them run, and go on; the pool frees itself when they end
        force,        ///< cut them off; leave those that don't end within `stopTimeoutMs` again
    };
    /// What becomes of the tasks that go on for longer than that.
    Stuck stuck = Stuck::keepWaiting;

    /// Bytes of stack that a task has: 128 KiB to 1 GiB, of which the memory is taken that was
    /// touched. Not set: what the system gives a thread, 8 MiB in most places (`ulimit -s`).
    std::optional<std::size_t> stackSize;

    /// What the pool is called in log records, `status`, metrics, timelines, kttop, probes and gdb:
    /// up to 31 characters of printable ASCII. Empty: it has no name.
    std::string name;
};

}  // namespace KT
