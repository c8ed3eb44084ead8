#include "PoolTask.h"

#include <exception>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>

#include <ktthread/KTThreadPool.h>

#include "Cancellation.h"
#include "CurrentJob.h"

namespace KT {
namespace detail {

PoolTask::PoolTask(boost::intrusive_ptr<Job> jobToRun, std::string_view name)
    : job(std::move(jobToRun))
{
    taskName = name;
}

PoolTask::~PoolTask()
{
    job->drop(Outcome::lost);
}

void PoolTask::run()
{
    CurrentJob::showsName = true;
    setExecutionTime();
    if (job->claim()) {
        job->run();
    }
    setEndTime();
}

void PoolTask::exitTask()
{
    job->requestStop();
}

void enqueue(const KTPoolRef& pool, const boost::intrusive_ptr<Job>& job, std::string_view name)
{
    try {
        pool.pool()->enqueue(boost::make_shared<PoolTask>(job, name));
    } catch (const std::exception&) {
        job->drop();
        throw;
    }
}

void enqueueAll(const KTPoolRef& pool, const std::vector<boost::intrusive_ptr<Job>>& jobs,
                std::string_view name)
{
    try {
        std::vector<boost::shared_ptr<KTTask>> tasks;
        tasks.reserve(jobs.size());
        for (const boost::intrusive_ptr<Job>& job : jobs) {
            tasks.push_back(boost::make_shared<PoolTask>(job, name));
        }
        pool.pool()->enqueueAll(std::move(tasks));
    } catch (const std::exception&) {
        for (const boost::intrusive_ptr<Job>& job : jobs) {
            job->drop();
        }
        throw;
    }
}

/// What the calling thread is to pass on when it is through with the one that it is at.
struct PoolTask::Backlog {
    static thread_local Backlog* current;

    boost::shared_ptr<PoolTask> first;
    PoolTask* last = nullptr;

    void add(boost::shared_ptr<PoolTask> task)
    {
        PoolTask* const added = task.get();
        (first ? last->next : first) = std::move(task);
        last = added;
    }

    void workOff()
    {
        while (first) {
            boost::shared_ptr<PoolTask> front = std::move(first);
            first = std::move(front->next);
            try {
                const boost::shared_ptr<KTThreadPool> pool = front->job->pool();
                if (pool && !front->isToDrop) {
                    pool->enqueue(std::move(front));
                }
            } catch (const std::exception&) {
                // Queued all the same, or dropped: it ends either way.
            }
        }
    }
};

// A mere pointer: there when a static object's pool is closed, after the thread's own objects.
thread_local PoolTask::Backlog* PoolTask::Backlog::current = nullptr;

void PoolTask::passOn(boost::shared_ptr<PoolTask> task, bool isToDrop)
{
    const NoCancellation off;
    task->isToDrop = isToDrop;
    if (Backlog::current != nullptr) {
        Backlog::current->add(std::move(task));
    } else {
        queue(std::move(task));
    }
}

void PoolTask::queue(boost::shared_ptr<PoolTask> task)
{
    const NoCancellation off;
    Backlog backlog;
    Backlog* const around = std::exchange(Backlog::current, &backlog);
    backlog.add(std::move(task));
    backlog.workOff();
    Backlog::current = around;
}

}  // namespace detail
}  // namespace KT
