#include <cerrno>
#include <climits>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <spdlog/common.h>

#include <kterror/KTError.h>

#include "Capture.h"
#include "Platform.h"
#include "Pools.h"

namespace {

using platform::Call;
using testing::ElementsAre;

static_assert(!std::is_polymorphic<KT::KTThread>::value, "nothing derives from a worker");
static_assert(!std::is_copy_constructible<KT::KTThread>::value, "a worker owns one thread");

class Thread : public PoolFixture {
protected:
    boost::shared_ptr<KT::KTThread> worker(const Pool& pool = Pool())
    {
        return boost::shared_ptr<KT::KTThread>(new KT::KTThread(pool, 3, wakeMutex, wakeCondition));
    }

    /// Ends a worker that sleeps or is about to.
    void end(const boost::shared_ptr<KT::KTThread>& thread)
    {
        thread->killThread();
        const KT::KTCriticalSection hold(wakeMutex);
        wakeCondition->broadcast();
    }

    const boost::shared_ptr<KT::KTMutex> wakeMutex = KT::KTMutex::createKTMutex();
    const boost::shared_ptr<KT::KTCondition> wakeCondition = KT::KTCondition::createKTCondition();
};

/// Every test runs in a process of its own, or at least puts the default back.
class StackSize : public Thread {
protected:
    void TearDown() override
    {
        KT::KTThread::setStackSize(0);
        Thread::TearDown();
    }

    /// The stack size that a launch of `thread` requests. The worker is ended again.
    long requestedSize(const boost::shared_ptr<KT::KTThread>& thread)
    {
        const platform::Recorder recorder;
        thread->launch();
        end(thread);
        return recorder.records(Call::stackSize).at(0).value;
    }

    /// The stack that a thread really got.
    static std::size_t actualSize(const boost::shared_ptr<KT::KTThread>& thread)
    {
        pthread_attr_t attributes;
        std::size_t size = 0;
        pthread_getattr_np(inside::threadHandle(*thread), &attributes);
        pthread_attr_getstacksize(&attributes, &size);
        pthread_attr_destroy(&attributes);
        return size;
    }

    static std::size_t platformDefault()
    {
        pthread_attr_t attributes;
        std::size_t size = 0;
        pthread_attr_init(&attributes);
        pthread_attr_getstacksize(&attributes, &size);
        pthread_attr_destroy(&attributes);
        return size;
    }
};

TEST_F(Thread, NewOneHasNoTaskNoTimeAndIsNotKilled)
{
    const auto thread = worker();
    EXPECT_FALSE(inside::killed(*thread));
    EXPECT_FALSE(inside::currentTask(*thread));
    EXPECT_EQ(inside::index(*thread), 3);
    EXPECT_EQ(inside::idleTime(*thread).tv_sec, 0);
    EXPECT_EQ(inside::idleTime(*thread).tv_usec, 0);
}

TEST_F(Thread, GetThisNeedsAnOwner)
{
    const auto owned = worker();
    EXPECT_EQ(owned->getThis(), owned);
    KT::KTThread unowned(Pool(), 0, wakeMutex, wakeCondition);
    EXPECT_THROW(unowned.getThis(), boost::bad_weak_ptr);
}

TEST_F(Thread, LaunchRequestsExplicitDefaultScheduling)
{
    const auto thread = worker();
    platform::Recorder recorder;
    EXPECT_EQ(thread->launch(), 0);
    end(thread);
    std::vector<Call> calls;
    std::vector<long> values;
    for (const platform::Record& record : recorder.records()) {
        if (record.call == Call::create) {
            break;
        }
        if (record.call == Call::stackSize || record.call == Call::inheritSched ||
            record.call == Call::schedPolicy || record.call == Call::schedPriority) {
            calls.push_back(record.call);
            values.push_back(record.value);
        }
    }
    EXPECT_THAT(calls, ElementsAre(Call::stackSize, Call::inheritSched, Call::schedPolicy,
                                   Call::schedPriority));
    EXPECT_THAT(values, ElementsAre(655360, PTHREAD_EXPLICIT_SCHED, SCHED_OTHER, 0));
    EXPECT_EQ(recorder.count(Call::create, thread.get()), 1U);
}

TEST_F(Thread, LaunchStampsItsTimeEvenIfItFails)
{
    const LogCapture log("core.thread");
    const platform::Failure failure(Call::create, EAGAIN);
    const auto thread = worker();
    EXPECT_EQ(inside::launchTime(*thread).tv_sec, 0);
    EXPECT_THROW(thread->launch(), KT::KTError);
    EXPECT_GT(inside::launchTime(*thread).tv_sec, 0);
}

TEST_F(Thread, FailedLaunchIsLoggedOnceAndThrown)
{
    const LogCapture log("core.thread");
    const platform::Failure failure(Call::create, EAGAIN);
    const auto thread = worker();
    std::string error;
    try {
        thread->launch();
    } catch (const KT::KTError& thrown) {
        error = thrown.toString();
    }
    const std::string text =
        "Aborting creating thread, pthread_create error. Too much thread asked";
    EXPECT_EQ(error,
              KT::KTError("pthread", "pthread", text, "libktthread/src/ktthread", 95).toString());
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_EQ(log.records()[0].text, text);
    EXPECT_EQ(log.records()[0].level, spdlog::level::critical);
    EXPECT_EQ(log.records()[0].function, "launch");
    EXPECT_EQ(log.records()[0].file, "");
    EXPECT_EQ(log.records()[0].line, 0);
}

TEST_F(Thread, FailingAttributesAndNamesAreIgnored)
{
    for (const Call call : {Call::stackSize, Call::inheritSched, Call::schedPolicy,
                            Call::schedPriority, Call::name}) {
        const platform::Failure failure(call, EINVAL);
        const auto thread = worker();
        EXPECT_EQ(thread->launch(), 0);
        end(thread);
    }
}

TEST_F(StackSize, FirstWorkerSetsTheDefault)
{
    EXPECT_EQ(requestedSize(worker()), 655360);
}

TEST_F(StackSize, SetOneIsUsedByLaterLaunchesOnly)
{
    const auto earlier = worker();
    earlier->launch();
    const std::size_t before = actualSize(earlier);
    KT::KTThread::setStackSize(1048576);
    EXPECT_EQ(requestedSize(worker()), 1048576);
    EXPECT_EQ(actualSize(earlier), before);
    end(earlier);
}

TEST_F(StackSize, ZeroIsPassedOnUntilTheNextWorkerIsMade)
{
    const auto thread = worker();
    const auto another = worker();
    KT::KTThread::setStackSize(0);
    EXPECT_EQ(requestedSize(thread), 0);
    worker();
    EXPECT_EQ(requestedSize(another), 655360);
}

class RefusedStackSize : public StackSize, public testing::WithParamInterface<int> {};

TEST_P(RefusedStackSize, GivesThePlatformsDefault)
{
    const auto thread = worker();
    KT::KTThread::setStackSize(GetParam());
    ASSERT_EQ(thread->launch(), 0);
    EXPECT_GE(actualSize(thread), platformDefault() - 65536);
    end(thread);
}

INSTANTIATE_TEST_SUITE_P(Sizes, RefusedStackSize, testing::Values(0, -1, INT_MIN, 1, 1000));

TEST_F(Thread, NamesAreCutToFifteenBytesByTheKernel)
{
    std::thread([] {
        const platform::Recorder recorder;
        KT::KTThread::setThreadName("KTThread [sleeping]");
        EXPECT_THAT(recorder.names(), ElementsAre("KTThread [sleeping]"));
        char name[32];
        pthread_getname_np(pthread_self(), name, sizeof name);
        EXPECT_STREQ(name, "KTThread [sleep");
    }).join();
}

TEST_F(Thread, KillWithoutATaskOnlySetsTheMark)
{
    const auto thread = worker();
    const platform::Recorder recorder;
    thread->killThread();
    EXPECT_TRUE(inside::killed(*thread));
    EXPECT_EQ(recorder.count(platform::Call::signal), 0U);
    EXPECT_EQ(recorder.count(platform::Call::broadcast), 0U);
    EXPECT_EQ(recorder.count(platform::Call::cancel), 0U);
}

TEST_F(Thread, KillAsksTheTaskToExitOnceUnderASharedHold)
{
    const auto thread = worker();
    const auto task = makeTask();
    int exits = 0;
    task->onExit = [&] {
        ++exits;
        EXPECT_TRUE(inside::killed(*thread));
        // Held shared: another reader can take the lock, a writer can't.
        std::thread([&] {
            const KT::KTCriticalSectionRead hold(inside::taskLock(*thread));
        }).join();
    };
    inside::currentTask(*thread) = task;
    thread->killThread();
    EXPECT_EQ(exits, 1);
    inside::currentTask(*thread).reset();
}

TEST_F(Thread, KillWaitsForTheExclusiveHoldOnly)
{
    const auto thread = worker();
    inside::taskLock(*thread)->writeLock();
    std::thread killer([&] { thread->killThread(); });
    EXPECT_FALSE(inside::killed(*thread));
    inside::taskLock(*thread)->unlock();
    killer.join();
    EXPECT_TRUE(inside::killed(*thread));
}

TEST_F(Thread, KillKeepsTheTaskWhileItExits)
{
    const auto thread = worker();
    auto task = makeTask();
    const boost::weak_ptr<KT::KTTask> watched(task);
    task->onExit = [&] {
        inside::currentTask(*thread).reset();
        EXPECT_FALSE(watched.expired());
    };
    inside::currentTask(*thread) = task;
    task.reset();
    thread->killThread();
    EXPECT_TRUE(watched.expired());
}

TEST_F(Thread, DestructionWithoutAThreadJoinsNothing)
{
    platform::Recorder recorder;
    worker().reset();
    {
        const LogCapture log("core.thread");
        const platform::Failure failure(Call::create, EAGAIN);
        EXPECT_THROW(worker()->launch(), KT::KTError);
    }
    EXPECT_EQ(recorder.count(Call::join), 0U);
    EXPECT_EQ(recorder.count(Call::detach), 0U);
}

TEST_F(Thread, DestructionElsewhereJoinsThenSignals)
{
    auto thread = worker();
    thread->launch();
    ASSERT_TRUE(eventually([] { return threadsNamed("KTThread [sleep").size() == 1; }));
    end(thread);
    ASSERT_TRUE(eventually([&] { return thread.use_count() == 1; }));
    platform::Recorder recorder;
    thread.reset();
    std::vector<Call> calls;
    for (const platform::Record& record : recorder.records()) {
        if (record.call == Call::join || record.call == Call::signal) {
            calls.push_back(record.call);
        }
    }
    EXPECT_THAT(calls, ElementsAre(Call::join, Call::signal));
}

TEST_F(Thread, DestructionOnItsOwnThreadDetachesIt)
{
    platform::Recorder recorder;
    auto thread = worker();
    const boost::weak_ptr<KT::KTThread> watched(thread);
    thread->launch();
    ASSERT_TRUE(eventually([] { return threadsNamed("KTThread [sleep").size() == 1; }));
    {
        // It ends only when this mutex is free: by then its own reference is the last one.
        const KT::KTCriticalSection hold(wakeMutex);
        thread->killThread();
        wakeCondition->broadcast();
        thread.reset();
    }
    ASSERT_TRUE(eventually([&] { return recorder.count(Call::detach) == 1; }));
    ASSERT_TRUE(eventually([&] { return watched.expired(); }));
    EXPECT_EQ(recorder.count(Call::join), 0U);
    EXPECT_TRUE(eventually([] { return threadsNamed("KTThread").empty(); }));
}

TEST_F(Thread, DestructionUnlinksTheTaskItStillHolds)
{
    const auto task = makeTask();
    auto thread = worker();
    task->setThread(thread);
    inside::currentTask(*thread) = task;
    platform::Recorder recorder;
    thread.reset();
    EXPECT_EQ(recorder.count(Call::signal), 1U);
    EXPECT_FALSE(inside::managingThread(*task).lock());
    EXPECT_EQ(task.use_count(), 1);
}

TEST_F(Thread, DestructionTakesASharedHoldAndMarksItKilledBeforeItSignals)
{
    auto thread = worker();
    KT::KTThread& dying = *thread;
    const void* const taskLock = inside::lock(*inside::taskLock(dying)).get();
    std::vector<Call> calls;
    bool isMarked = false;
    {
        const platform::Observer observer([&](Call call, const void* object) {
            if (call == Call::signal) {
                isMarked = inside::killed(dying);
            }
            if (call == Call::signal || object == taskLock) {
                calls.push_back(call);
            }
        });
        thread.reset();
    }
    EXPECT_THAT(calls, ElementsAre(Call::readLock, Call::signal, Call::rwUnlock));
    EXPECT_TRUE(isMarked);
}

TEST_F(Thread, FailingJoinIsIgnored)
{
    auto thread = worker();
    thread->launch();
    ASSERT_TRUE(eventually([] { return threadsNamed("KTThread [sleep").size() == 1; }));
    const pthread_t handle = inside::threadHandle(*thread);
    end(thread);
    ASSERT_TRUE(eventually([&] { return thread.use_count() == 1; }));
    {
        const platform::Failure failure(Call::join, EINVAL);
        EXPECT_NO_THROW(thread.reset());
    }
    EXPECT_EQ(pthread_join(handle, nullptr), 0);
}

}  // namespace
