// How jobs come into a pool's queue.
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <ktasync/detail/Job.h>
#include <ktthread/KTThreadPool.h>

#include "../scheduler/Scheduler.h"
#include "CurrentJob.h"

namespace KT {
namespace detail {

namespace {

/// A thread of the pool's own, whose queue would wait for it, must not block.
bool mayBlockFor(const Scheduler& scheduler)
{
    const boost::shared_ptr<KTThreadPool> pool = scheduler.pool();
    return !(pool && pool->runningInThisThread()) && !CurrentJob::isAnyOf(scheduler);
}

/// Also queues the jobs if they come in.
Admission::Entry admit(Scheduler& scheduler, std::vector<WorkPointer>& jobs)
{
    Admission::Lock hold = scheduler.admission.lock();
    const Admission::Entry entry = scheduler.admission.enterLocked(hold, mayBlockFor(scheduler));
    if (entry == Admission::Entry::comesIn) {
        scheduler.queueAll(std::move(jobs));
    }
    return entry;
}

/// Of a pool that doesn't take everything.
bool enqueueIfAdmitted(Scheduler& scheduler, std::vector<WorkPointer> jobs)
{
    const Admission::Entry entry = admit(scheduler, jobs);
    if (entry == Admission::Entry::comesIn) {
        return scheduler.call();
    }
    for (const WorkPointer& work : jobs) {
        Job& job = static_cast<Job&>(*work);
        if (entry == Admission::Entry::refused) {
            job.abandon();
        } else if (job.claim()) {
            runForWaiter(job);
        }
    }
    return entry == Admission::Entry::runsHere;
}

}  // namespace

bool enqueue(boost::intrusive_ptr<Job> job)
{
    Scheduler& scheduler = job->scheduler();
    return scheduler.admission.isOpen() ? scheduler.submit(std::move(job))
                                        : enqueueIfAdmitted(scheduler, {std::move(job)});
}

bool enqueueAll(Scheduler& pool, std::vector<boost::intrusive_ptr<Work>> jobs)
{
    return pool.admission.isOpen() ? pool.submitAll(std::move(jobs))
                                   : enqueueIfAdmitted(pool, std::move(jobs));
}

}  // namespace detail
}  // namespace KT
