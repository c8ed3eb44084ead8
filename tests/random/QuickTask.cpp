#include "QuickTask.h"

#include <boost/make_shared.hpp>

#include <kterror/KTError.h>

namespace {

const int fromTasks = -1;

}  // namespace

Quick TaskSurroundings::newTask(int owner, int kind)
{
    const Quick task = boost::make_shared<QuickTask>(*this, owner, kind);
    const std::lock_guard<std::mutex> hold(mutex);
    all.push_back(task);
    return task;
}

QuickTask::QuickTask(TaskSurroundings& shared, int who, int chosenKind)
    : owner(who), around(shared), kind(chosenKind)
{
    setTaskName(std::string(static_cast<std::size_t>(kind % 20), 'q'));
    autoDelete = kind % 2 == 0;
}

void QuickTask::run()
{
    {
        const std::lock_guard<std::mutex> hold(around.mutex);
        around.begun.push_back(this);
    }
    ++starts;
    doWork();
    ++ends;
    if (kind % 13 == 0) {
        throw KT::KTError("random", "run", "on purpose", __FILE__, __LINE__);
    }
}

void QuickTask::exitTask()
{
    mustExit = true;
}

void QuickTask::doWork()
{
    switch (kind % 10) {
        case 0: setExecutionTime(); break;
        case 1: queueAnother(); break;
        case 2: around.pool->adjustThread(1); break;
        case 3: around.pool->adjustThread(-3); break;
        case 4: around.pool->status(); break;
        case 5: linger(); break;
        case 6: toString(); break;
        case 7: around.pool->wake(); break;
        case 8: around.pool->join(0); break;  // a worker's own pool: refused
        default: break;
    }
}

// No more than one generation.
void QuickTask::queueAnother()
{
    if (owner != fromTasks) {
        const Quick task = around.newTask(fromTasks, kind / 10);
        task->accepted += around.pool->enqueue(task) ? 1 : 0;
    }
}

void QuickTask::linger()
{
    const boost::shared_ptr<KT::KTMutex> own = KT::KTMutex::createKTMutex();
    const boost::shared_ptr<KT::KTCondition> never = KT::KTCondition::createKTCondition();
    const KT::KTCriticalSection hold(own);
    for (int i = 0; i < 2 && !mustExit; ++i) {
        never->waitFor(own, 1);
    }
}
