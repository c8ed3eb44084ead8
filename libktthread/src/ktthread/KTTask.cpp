#include <ktthread/KTTask.h>

#include <array>
#include <functional>
#include <mutex>

#include <ktthread/KTThread.h>

#include "CacheLine.h"
#include "TaskLink.h"
#include "TaskState.h"
#include "TimeStamps.h"

namespace KT {

static_assert(sizeof(std::atomic<std::int32_t>) == sizeof(std::int32_t),
              "a task's state takes no more room than the number");

namespace core {

std::mutex& taskLinkMutex(const KTTask* task)
{
    struct alignas(cacheLineSize) Lock {
        std::mutex mutex;
    };
    // A std::mutex needs no destructor, so these outlive every worker.
    static std::array<Lock, 61> locks;
    return locks[std::hash<const KTTask*>()(task) / alignof(KTTask) % locks.size()].mutex;
}

}  // namespace core

KTTask::KTTask()
    : autoDelete(false),
      taskName("undefined"),
      creationTime(),
      executionTime(),
      endTime(),
      state(core::stateWaiting),
      isCarrier(false)
{
    setCreationTime();
}

KTTask::~KTTask() = default;

void KTTask::exitTask() {}

const std::string& KTTask::getTaskName() const
{
    return taskName;
}

void KTTask::setTaskName(const std::string& name)
{
    taskName = name;
}

void KTTask::setCreationTime()
{
    core::stamp(creationTime);
    state = core::stateWaiting;
}

void KTTask::setExecutionTime()
{
    core::stamp(executionTime);
    state = core::stateRunning;
}

void KTTask::setEndTime()
{
    core::stamp(endTime);
    state = core::stateFinished;
}

std::int32_t KTTask::getIdleTime() const
{
    return core::microsecondsBetween(creationTime, executionTime);
}

std::int32_t KTTask::getExecutionTime() const
{
    return core::microsecondsBetween(executionTime, endTime);
}

void KTTask::waitForEndOfTask()
{
    const int pollMs = 100;
    while (state != core::stateFinished) {
        ro::os::msleep(pollMs);
    }
}

void KTTask::setThread(boost::shared_ptr<KTThread> thread)
{
    boost::weak_ptr<KTThread> link(thread);
    const std::lock_guard<std::mutex> hold(core::taskLinkMutex(this));
    managingThread.swap(link);
}

}  // namespace KT
