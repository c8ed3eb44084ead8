// How work ends that no worker will run.
#include <climits>
#include <utility>

#include "../base/Futex.h"
#include "Scheduler.h"

namespace KT {
namespace detail {

/// A thread that drops work, of which some may already be out of its queue.
class Scheduler::Abandoning {
public:
    explicit Abandoning(Scheduler& ofPool) : scheduler(ofPool), around(std::exchange(current, this))
    {
        ++scheduler.abandoning;
    }
    ~Abandoning()
    {
        current = around;
        if (--scheduler.abandoning == 0) {
            futexWake(scheduler.abandoning, INT_MAX);
        }
    }
    Abandoning(const Abandoning&) = delete;
    Abandoning& operator=(const Abandoning&) = delete;

    /// Blocks until no other thread does. In a destructor that runs because work is dropped, it
    /// doesn't: the thread would wait for itself.
    static void waitForOthers(Scheduler& scheduler)
    {
        while (const int others = current == nullptr ? scheduler.abandoning.load() : 0) {
            futexWait(scheduler.abandoning, others);
        }
    }

private:
    static thread_local const Abandoning* current;
    Scheduler& scheduler;
    const Abandoning* const around;
};

thread_local const Scheduler::Abandoning* Scheduler::Abandoning::current = nullptr;

void Scheduler::abandonAll()
{
    const Abandoning mark(*this);
    const auto abandonIn = [](WorkQueue& queue) {
        while (const WorkPointer work = queue.takeFirst()) {
            work->abandon();
        }
    };
    for (const std::unique_ptr<WorkQueue>& queue : outer) {
        abandonIn(*queue);
    }
    for (int i = 0; i < runnerCount; ++i) {
        abandonIn(runners[static_cast<std::size_t>(i)].load()->own);
    }
}

void Scheduler::dropQueued()
{
    wasStopped = true;
    admission.stop();
    abandonAll();
    // What another thread, such as the clock's, has taken out to drop it has ended by then too.
    Abandoning::waitForOthers(*this);
}

// Whether the pool has stopped: what was queued then is dropped.
bool Scheduler::isRefused()
{
    const boost::shared_ptr<KTThreadPool> pool = target.lock();
    if (pool && pool->status().threads > 0) {
        return false;  // growth has started it again
    }
    abandonAll();
    return true;
}

// A carrier was destroyed in the core's queue: by a shutdown, which calls `dropQueued` next, or by
// a client that has taken it from there.
void Scheduler::carrierDropped(Runner& runner)
{
    giveBack(runner);
    --unstarted;
    --searching;
    --carriers;
    watch();
}

}  // namespace detail
}  // namespace KT
