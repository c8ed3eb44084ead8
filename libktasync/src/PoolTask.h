/// The task of the core that brings a job to a worker.
#pragma once

#include <string_view>

#include <boost/shared_ptr.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktthread/KTTask.h>

#include <ktasync/detail/Job.h>

namespace KT {
namespace detail {

/// Runs the job, unless somebody else has begun it. Destroyed without having run, it drops the job:
/// whoever waits for it hears of a shutdown that way.
class PoolTask : public KTTask {
public:
    PoolTask(boost::intrusive_ptr<Job> jobToRun, std::string_view name);
    ~PoolTask() override;

    void run() override;
    void exitTask() override;

    /// Puts `task` into the queue of its job's pool, or drops it, as it does if the pool refuses it
    /// or is gone. Without recursion, where that leads to the same for the next one: a chain may be
    /// long. Throws nothing: memory that runs out counts as a refusal.
    static void passOn(boost::shared_ptr<PoolTask> task, bool isToDrop);

    /// The same, at once: for clients. One may wait for the job's end next, and be a destructor
    /// that a task passed on has led to.
    static void queue(boost::shared_ptr<PoolTask> task);

private:
    struct Backlog;

    const boost::intrusive_ptr<Job> job;
    // In a backlog.
    boost::shared_ptr<PoolTask> next;
    bool isToDrop = false;
};

}  // namespace detail
}  // namespace KT
