/// That each operation is one function: a client may take its address, bind it and pass it braces.
#include <functional>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include <kterror/KTError.h>
#include <ro/os.h>

#include "Pools.h"

namespace {

/// Fails to compile where `operation` is overloaded.
template <typename Function, typename Class>
constexpr bool isOne(Function Class::*)
{
    return true;
}

template <typename Function>
constexpr bool isOne(Function*)
{
    return true;
}

using KT::KTThreadPool;
static_assert(isOne(&KTThreadPool::init) && isOne(&KTThreadPool::getThis));
static_assert(isOne(&KTThreadPool::enqueue) && isOne(&KTThreadPool::enqueueAll));
static_assert(isOne(&KTThreadPool::getTask) && isOne(&KTThreadPool::taskEnded));
static_assert(isOne(&KTThreadPool::adjustThread) && isOne(&KTThreadPool::xIncreaseThread));
static_assert(isOne(&KTThreadPool::apoptosis) && isOne(&KTThreadPool::resetSumThreadIdle));
static_assert(isOne(&KTThreadPool::computeSumThreadIdle) && isOne(&KTThreadPool::shutdown));
static_assert(isOne(&KTThreadPool::wake) && isOne(&KTThreadPool::join));
static_assert(isOne(&KTThreadPool::close) && isOne(&KTThreadPool::status));
static_assert(isOne(&KTThreadPool::runningInThisThread));
static_assert(isOne(&KTThreadPool::setStackSize) && isOne(&KTThreadPool::setMessages));
static_assert(isOne(&KTThreadPool::setName) && isOne(&KTThreadPool::name));

using KT::KTThread;
static_assert(isOne(&KTThread::setStackSize) && isOne(&KTThread::setThreadName));
static_assert(isOne(&KTThread::launch) && isOne(&KTThread::killThread));
static_assert(isOne(&KTThread::getThis) && isOne(&KTThread::getTask));
static_assert(isOne(&KTThread::apoptosis) && isOne(&KTThread::runTask));
static_assert(isOne(&KT::_KT_Thread_Pool_Atom));

using KT::KTTask;
static_assert(isOne(&KTTask::run) && isOne(&KTTask::exitTask) && isOne(&KTTask::getTaskName));
static_assert(isOne(&KTTask::setCreationTime) && isOne(&KTTask::setExecutionTime));
static_assert(isOne(&KTTask::setEndTime) && isOne(&KTTask::getIdleTime));
static_assert(isOne(&KTTask::getExecutionTime) && isOne(&KTTask::waitForEndOfTask));
static_assert(isOne(&KTTask::setThread) && isOne(&KTTask::setTaskName));
static_assert(isOne(&KTTask::toString));

static_assert(isOne(&KT::KTMonitor::assimilate) && isOne(&KT::KTMonitor::adjustPool));

static_assert(isOne(&KT::KTMutex::createKTMutex) && isOne(&KT::KTMutex::lock));
static_assert(isOne(&KT::KTMutex::unlock) && isOne(&KT::KTMutexRW::createKTMutexRW));
static_assert(isOne(&KT::KTMutexRW::readLock) && isOne(&KT::KTMutexRW::writeLock));
static_assert(isOne(&KT::KTMutexRW::unlock) && isOne(&KT::KTCondition::createKTCondition));
static_assert(isOne(&KT::KTCondition::signal) && isOne(&KT::KTCondition::broadcast));
static_assert(isOne(&KT::KTCondition::wait) && isOne(&KT::KTCondition::waitFor));
static_assert(isOne(&KT::KTCriticalSection::forceUnlockNow));
static_assert(isOne(&KT::KTCriticalTrueIfLocked::forceUnlockNow));

static_assert(isOne(&KT::KTConditionManager::addCondition));
static_assert(isOne(&KT::KTConditionManager::waitForCondition));
static_assert(isOne(&KT::KTConditionManager::triggerCondition));

static_assert(isOne(&KT::KTError::toString));
static_assert(isOne(&ro::os::gettimeofday) && isOne(&ro::os::msleep));

class Operations : public PoolFixture {};

TEST_F(Operations, EnqueueCanBeBoundAndCalledByItsAddress)
{
    const Pool pool = made(1, 1);
    pool->init(0, 1, 0, 0, 0);
    const auto address = &KTThreadPool::enqueue;
    EXPECT_TRUE(((*pool).*address)(makeTask()));
    const auto bound = std::bind(&KTThreadPool::enqueue, pool.get(), std::placeholders::_1);
    EXPECT_TRUE(bound(makeTask()));
    EXPECT_EQ(pool->status().queuedTasks, 2);
}

TEST_F(Operations, EnqueueOfBracesIsThatOfAnEmptyPointer)
{
    const Pool pool = made(1, 1);
    pool->init(0, 1, 0, 0, 0);
    EXPECT_FALSE(pool->enqueue({}));
    EXPECT_EQ(pool->status().queuedTasks, 1);
}

}  // namespace
