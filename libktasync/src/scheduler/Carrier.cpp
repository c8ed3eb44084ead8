#include "Carrier.h"

#include <ktthread/KTThread.h>

#include "../base/Cancellation.h"
#include "ThreadName.h"

namespace KT {
namespace detail {

namespace {

/// What the calling thread runs, if it is a worker.
struct OfThisThread {
    const Scheduler* scheduler;
    Runner* runner;
};
thread_local OfThisThread ofThisThread = {nullptr, nullptr};

/// Shows the name of `work`, unless it is shown already.
void show(Runner& runner, const Work& work)
{
    if (!(runner.shownName == work.fixedName())) {
        showTaskName(work.name());
        runner.shownName = work.fixedName();
    }
}

}  // namespace

Carrier::Carrier(Scheduler& itsScheduler, Runner& itsPlace)
    : scheduler(&itsScheduler), runner(itsPlace)
{
    setTaskName("carrier");
    // Of the tasks that are queued after the carrier, some may wait for its worker.
    runner.coreTasksSeen = itsScheduler.coreTasks;
}

Carrier::~Carrier()
{
    if (!hasBegun) {
        scheduler->carrierDropped(runner);
    }
}

void Carrier::disown()
{
    hasBegun = true;
}

Runner* Carrier::runnerOfThisThread(const Scheduler& scheduler)
{
    return ofThisThread.scheduler == &scheduler ? ofThisThread.runner : nullptr;
}

int Carrier::workerOfThisThread()
{
    return ofThisThread.runner != nullptr ? ofThisThread.runner->worker : -1;
}

bool Carrier::isThisThread()
{
    return ofThisThread.runner != nullptr;
}

/// The time that a carrier has a worker; it may be cut off by force.
class Carrier::Shift {
public:
    explicit Shift(Carrier& itsCarrier) : carrier(itsCarrier)
    {
        carrier.scheduler->enter(carrier.runner, carrier.current);
        carrier.runner.worker = carrier.slotOfWorker();
        carrier.isAtWork = true;
        ofThisThread = {carrier.scheduler.get(), &carrier.runner};
    }
    ~Shift()
    {
        // What the worker shows from here on. Without an allocation: it has 15 characters at most.
        if (!carrier.runner.shownName.view().empty()) {
            carrier.taskName = carrier.runner.shownName.view();
        }
        carrier.isAtWork = false;
        ofThisThread = {nullptr, nullptr};
        carrier.scheduler->leave(carrier.runner, carrier.isStopped());
    }
    Shift(const Shift&) = delete;
    Shift& operator=(const Shift&) = delete;

private:
    Carrier& carrier;
};

void Carrier::run()
{
    hasBegun = true;
    const NoCancellation off;
    const Shift shift(*this);
    while (const WorkPointer work = scheduler->next(runner, *this)) {
        runOne(*work);
    }
}

void Carrier::runOne(Work& work)
{
    /// Also where the work is cut off by force.
    struct Turn {
        explicit Turn(Carrier& itsCarrier) : carrier(itsCarrier)
        {
            carrier.runner.isInWork.store(true, std::memory_order_relaxed);
        }
        ~Turn()
        {
            carrier.runner.isInWork.store(false, std::memory_order_relaxed);
            carrier.current.end();
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        Carrier& carrier;
    };
    if (!current.begin(work)) {
        scheduler->outerQueue().putBack(&work);
        return;
    }
    const Turn turn(*this);
    show(runner, work);
    scheduler->found(runner);
    work.execute();
}

void Carrier::exitTask()
{
    current.requestStop();
    if (isAtWork) {
        scheduler->idle.callTo(runner, Runner::callToLeave);
    }
}

}  // namespace detail
}  // namespace KT
