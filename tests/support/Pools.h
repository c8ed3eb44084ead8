/// Tasks and pools for the tests.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <gtest/gtest.h>

#include <ktthread/ktthread.h>

#include "Inside.h"
#include "Platform.h"
#include "Waiting.h"

/// A task made of two functions.
class FunctionTask : public KT::KTTask {
public:
    explicit FunctionTask(std::function<void()> runBody, const std::string& name = "function")
        : body(std::move(runBody))
    {
        setTaskName(name);
    }

    void run() override { body(); }
    void exitTask() override
    {
        if (onExit) {
            onExit();
        }
    }

    std::function<void()> body;
    std::function<void()> onExit;
};

inline boost::shared_ptr<FunctionTask> makeTask(std::function<void()> body,
                                                const std::string& name = "function")
{
    return boost::make_shared<FunctionTask>(std::move(body), name);
}

/// A task of which only the fields matter.
inline boost::shared_ptr<FunctionTask> makeTask()
{
    return makeTask([] {});
}

using Pool = boost::shared_ptr<KT::KTThreadPool>;

/// Whether any thread holds `mutex`, the calling one included.
inline bool isHeld(const boost::shared_ptr<KT::KTMutex>& mutex)
{
    bool alreadyLocked = false;
    const KT::KTCriticalTrueIfLocked attempt(mutex, alreadyLocked);
    return alreadyLocked;
}

/// A fixture that closes the pools it made, and leaves no worker to the test that comes next.
class PoolFixture : public testing::Test {
protected:
    /// Made but not initialised.
    Pool made(int nbThreads, int maxThreads, int period = 0)
    {
        pools.push_back(boost::make_shared<KT::KTThreadPool>(nbThreads, maxThreads, period, 0, 0));
        return pools.back();
    }

    Pool running(int nbThreads, int maxThreads, int period = 0)
    {
        const Pool pool = made(nbThreads, maxThreads, period);
        pool->init(nbThreads, maxThreads, period, 0, 0);
        return pool;
    }

    /// A pool that nothing makes grow: it has all the workers that it may have.
    Pool fixed(int nbThreads) { return running(nbThreads, nbThreads); }

    Pool named(const std::string& name, int nbThreads)
    {
        const Pool pool = made(nbThreads, nbThreads);
        pool->setName(name);
        pool->init(nbThreads, nbThreads, 0, 0, 0);
        return pool;
    }

    void TearDown() override
    {
        for (const Pool& pool : pools) {
            EXPECT_TRUE(pool->close(false, 60000));
        }
        pools.clear();
        // A thread exists for a moment after it was counted out, and nothing else waits for one
        // that detaches itself. The next test would take it for its own.
        EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
    }

private:
    std::vector<Pool> pools;
};

/// Waits until `count` workers of `pool` sleep, in the wait itself.
inline bool untilAsleep(const Pool& pool, std::size_t count)
{
    const bool named =
        eventually([count] { return threadsNamed("KTThread [sleep").size() == count; });
    // A worker gives itself the name under this mutex, and releases it only in the wait.
    const KT::KTCriticalSection hold(inside::wakeMutex(pool));
    return named;
}

/// Waits until `task` is finished, waking the pool as a client does.
inline bool untilFinished(const Pool& pool, const boost::shared_ptr<KT::KTTask>& task)
{
    return eventually([&] {
        pool->wake();
        return inside::state(*task) == 2;
    });
}

/// Waits until a task of `pool` has come to `gate`, waking the pool as a client does.
inline bool untilArrived(const Pool& pool, const Gate& gate)
{
    return eventually([&] {
        pool->wake();
        return gate.arrived() == 1;
    });
}

/// Has a thread of its own hold a mutex, so that the test's own calls are made with none held.
class HeldElsewhere {
public:
    explicit HeldElsewhere(boost::shared_ptr<KT::KTMutex> mutex)
    {
        holder.start([this, mutex] {
            const KT::KTCriticalSection hold(mutex);
            end.pass();
        });
        EXPECT_TRUE(end.untilArrived(1));
    }
    ~HeldElsewhere()
    {
        end.open();
        holder.joinAll();
    }
    HeldElsewhere(const HeldElsewhere&) = delete;
    HeldElsewhere& operator=(const HeldElsewhere&) = delete;

private:
    Gate end;
    Threads holder;
};

/// Stops the only worker of a pool between its look at the empty queue and its sleep: it waits
/// there for the wake mutex, which another thread holds.
class OnTheWayToSleep {
public:
    explicit OnTheWayToSleep(const Pool& heldPool) : pool(heldPool)
    {
        EXPECT_TRUE(pool->enqueue(makeTask([this] { gate.pass(); })));
        EXPECT_TRUE(untilArrived(pool, gate));
        const platform::Recorder recorder;
        held.emplace(inside::wakeMutex(pool));
        gate.open();
        const void* const mutex = inside::mutex(*inside::wakeMutex(pool)).get();
        EXPECT_TRUE(eventually([&] { return recorder.count(platform::Call::lock, mutex) == 2; }));
    }

private:
    Pool pool;
    Gate gate;
    std::optional<HeldElsewhere> held;
};
