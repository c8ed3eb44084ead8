#include <atomic>
#include <thread>
#include <utility>

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktthread/ktthread.h>

#include "Waiting.h"

namespace {

using Pool = boost::shared_ptr<KT::KTThreadPool>;

struct Recording : KT::KTPoolExtension {
    void tasksQueued() override { ++batches; }
    void dropQueued() override { ++drops; }
    void amend(KT::KTThreadPoolStatus& status) const override { status.queuedTasks += 100; }
    std::atomic<int> batches{0};
    std::atomic<int> drops{0};
};

struct Task : KT::KTTask {
    void run() override {}
};

struct Carrier : KT::KTCarrier {
    explicit Carrier(std::atomic<int>& slotToTell) : slot(slotToTell) {}
    void run() override { slot = slotOfWorker(); }
    int slotBefore() const { return slotOfWorker(); }
    std::atomic<int>& slot;
};

Pool makePool()
{
    Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(1, 1, 0, 0, 0);
    return pool;
}

TEST(PoolExtension, IsOneAtMostAndGoesWithThePool)
{
    const boost::intrusive_ptr<Recording> extension(new Recording);
    Pool pool = makePool();
    EXPECT_EQ(pool->extension(), nullptr);
    EXPECT_TRUE(pool->attach(extension));
    EXPECT_FALSE(pool->attach(new Recording));
    EXPECT_EQ(pool->extension(), extension.get());
    pool->close();
    EXPECT_EQ(extension->use_count(), 2U);
    pool.reset();
    EXPECT_EQ(extension->use_count(), 1U);
}

TEST(PoolExtension, HearsOfTasksButNotOfCarriers)
{
    const boost::intrusive_ptr<Recording> extension(new Recording);
    const Pool pool = makePool();
    pool->attach(extension);
    std::atomic<int> slot(-2);
    const auto carrier = boost::make_shared<Carrier>(slot);
    EXPECT_EQ(carrier->slotBefore(), -1);
    EXPECT_TRUE(pool->enqueue(carrier));
    EXPECT_TRUE(eventually([&] {
        pool->wake();
        return slot == 0;
    }));
    EXPECT_EQ(extension->batches, 0);
    pool->enqueue(boost::make_shared<Task>());
    pool->enqueueAll({boost::make_shared<Task>(), boost::make_shared<Task>()});
    EXPECT_EQ(extension->batches, 2);
    pool->close();
}

TEST(PoolExtension, AmendsTheStatusAndHearsOfAShutdown)
{
    const boost::intrusive_ptr<Recording> extension(new Recording);
    const Pool pool = makePool();
    pool->attach(extension);
    EXPECT_EQ(pool->status().queuedTasks, 100);
    pool->shutdown(false);
    EXPECT_EQ(extension->drops, 1);
    pool->close();
    EXPECT_GE(extension->drops, 2);
}

TEST(PoolExtension, ThreadMayStandInForAWorkerThatWaitsForIt)
{
    struct Divided : KT::KTTask {
        explicit Divided(Pool itsPool) : pool(std::move(itsPool)) {}
        void run() override
        {
            const void* const worker = KT::KTPoolExtension::workerOfThisThread();
            std::thread part([this, worker] {
                wasWorker = pool->runningInThisThread();
                KT::KTPoolExtension::standInFor(worker);
                isWorker = pool->runningInThisThread();
                isClosed = pool->close();
            });
            part.join();
        }
        bool isDone() const { return state == 2; }
        const Pool pool;
        bool wasWorker = true;
        bool isWorker = false;
        bool isClosed = true;
    };
    EXPECT_EQ(KT::KTPoolExtension::workerOfThisThread(), nullptr);
    const Pool pool = makePool();
    const auto task = boost::make_shared<Divided>(pool);
    EXPECT_TRUE(pool->enqueue(task));
    EXPECT_TRUE(eventually([&] {
        pool->wake();
        return task->isDone();
    }));
    EXPECT_FALSE(task->wasWorker);
    EXPECT_TRUE(task->isWorker);
    EXPECT_FALSE(task->isClosed);
    EXPECT_TRUE(pool->close());
}

TEST(PoolExtension, ProbesHaveNoListenersByThemselves)
{
    const KT::KTPoolExtension::Listeners listeners = KT::KTPoolExtension::probeListeners();
    EXPECT_EQ(*listeners.queued + *listeners.started + *listeners.ended, 0);
    const Pool pool = makePool();
    KT::KTPoolExtension::probeQueued(pool.get(), "work", 1);
    KT::KTPoolExtension::probeStarted(pool.get(), "work", 0, 1);
    KT::KTPoolExtension::probeEnded(pool.get(), "work", 0, 1);
    pool->close();
}

}  // namespace
