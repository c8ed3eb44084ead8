// Uses all of the core and some of libktasync for a second or two, with nothing in front of the
// platform's calls: what valgrind's tools look at (see valgrind-checks).
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>

#include <ktasync/ktasync.h>
#include <kterror/KTError.h>
#include <ktthread/ktthread.h>

namespace {

using Pool = boost::shared_ptr<KT::KTThreadPool>;

void require(bool holds, const char* what)
{
    if (!holds) {
        throw std::runtime_error(what);
    }
}

/// Counts what tasks have done; made of the library's own locks.
class Count {
public:
    void up()
    {
        const KT::KTCriticalSection hold(mutex);
        ++value;
        changed->broadcast();
    }

    /// Waits until it is `wanted`, calling `nudge` now and then.
    void await(int wanted, const std::function<void()>& nudge)
    {
        while (!reached(wanted)) {
            nudge();
        }
    }

    /// Waits until it is `wanted`, waking the pool as a client does.
    void await(const Pool& pool, int wanted)
    {
        await(wanted, [&] { pool->wake(); });
    }

private:
    bool reached(int wanted)
    {
        const KT::KTCriticalSection hold(mutex);
        if (value < wanted) {
            changed->waitFor(mutex, 5);
        }
        return value >= wanted;
    }

    boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
    boost::shared_ptr<KT::KTCondition> changed = KT::KTCondition::createKTCondition();
    int value = 0;
};

class Task : public KT::KTTask {
public:
    explicit Task(std::function<void()> runBody) : body(std::move(runBody))
    {
        setTaskName("exercise");
    }
    void run() override
    {
        setExecutionTime();
        body();
        setEndTime();
    }

private:
    std::function<void()> body;
};

Pool running(int workers, int capacity, int period)
{
    const Pool pool = boost::make_shared<KT::KTThreadPool>(workers, capacity, period, 0, 0);
    pool->setName("exercise");
    pool->init(workers, capacity, period, 0, 0);
    return pool;
}

/// A task that stays in its body until `release` is called.
class Blocker {
public:
    /// How the body waits.
    enum Kind { inCondition, inSleep };

    explicit Blocker(Kind howItWaits = inCondition) : kind(howItWaits) {}

    /// Queued as a batch: the pool looks whether it should grow before they have begun.
    void occupy(const Pool& pool, int workers)
    {
        std::vector<boost::shared_ptr<KT::KTTask>> tasks;
        for (int i = 0; i < workers; ++i) {
            tasks.push_back(boost::make_shared<Task>([this] {
                block();
                ended.up();
            }));
        }
        require(pool->enqueueAll(tasks), "enqueueAll");
        begun.await(pool, workers);
        occupied = workers;
    }

    /// Waits until all workers that it occupied have left the body.
    void awaitEnd(const Pool& pool) { ended.await(pool, occupied); }

    void release()
    {
        const KT::KTCriticalSection hold(mutex);
        released = true;
        opened->broadcast();
    }

private:
    void block()
    {
        // Held by RAII: a forced shutdown must give both back.
        const std::vector<int> memory(1000);
        begun.up();
        while (kind == inSleep) {
            ro::os::msleep(60000);
        }
        const KT::KTCriticalSection hold(mutex);
        while (!released) {
            opened->wait(mutex);
        }
    }

    const Kind kind;
    Count begun;
    Count ended;
    int occupied = 0;
    boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
    boost::shared_ptr<KT::KTCondition> opened = KT::KTCondition::createKTCondition();
    bool released = false;
};

// ---------------------------------------------------------------------------------------------
// The core
// ---------------------------------------------------------------------------------------------

void tasksInAPoolThatGrows()
{
    const Pool pool = running(1, 6, 2);
    Count done;
    for (int i = 0; i < 40; ++i) {
        require(pool->enqueue(boost::make_shared<Task>([&] { done.up(); })), "enqueue");
    }
    std::vector<boost::shared_ptr<KT::KTTask>> batch;
    for (int i = 0; i < 40; ++i) {
        batch.push_back(boost::make_shared<Task>([&] { done.up(); }));
    }
    batch.back()->autoDelete = true;
    require(pool->enqueueAll(batch), "enqueueAll");
    require(pool->enqueue(boost::make_shared<Task>([&] {
        done.up();
        throw KT::KTError("exercise", "exercise", "as it should", "exercise", 1);
    })),
            "enqueue of a task that fails");
    done.await(pool, 81);
    batch.front()->waitForEndOfTask();
    require(batch.front()->toString().find("exercise") != std::string::npos, "report");
    require(batch.front()->getIdleTime() >= 0, "waiting time");
    require(pool->status().threads > 1, "the pool has not grown");
    require(pool->close(), "close");
}

void workersRetire()
{
    const Pool pool = running(20, 24, 1);
    Blocker blocker;
    blocker.occupy(pool, 10);
    require(pool->adjustThread(2), "growth");
    pool->xIncreaseThread();
    require(pool->adjustThread(-19), "retirement");
    blocker.release();
    Count done;
    // Each task wakes a worker, which retires if it is to.
    for (int i = 1; pool->status().threadsToRemove > 0; ++i) {
        pool->enqueue(boost::make_shared<Task>([&] { done.up(); }));
        done.await(pool, i);
    }
    pool->resetSumThreadIdle();
    pool->computeSumThreadIdle();
    // The monitor releases workers that have retired, while tasks end.
    const int grown = pool->status().threads + 5;
    while (pool->status().threads < grown) {
        Blocker all;
        all.occupy(pool, pool->status().threads);
        all.release();
        all.awaitEnd(pool);
    }
    require(pool->close(), "close");
}

/// A pool that is shut down while tasks wait in the queue, and run in all `workers` of at most
/// `capacity`.
void endOfABusyPool(bool force, Blocker::Kind kind, int workers, int capacity)
{
    const Pool pool = running(workers, capacity, 1);
    Blocker blocker(kind);
    blocker.occupy(pool, workers);
    for (int i = 0; i < 10; ++i) {
        pool->enqueue(boost::make_shared<Task>([&] { blocker.release(); }));
    }
    pool->shutdown(force);
    require(!pool->enqueue(boost::make_shared<Task>([] {})), "enqueue after shutdown");
    blocker.release();
    require(pool->join(), "join");
    require(pool->close(force), "close");
}

void startsAnew()
{
    const Pool pool = running(1, 3, 0);
    pool->shutdown(false);
    require(pool->xIncreaseThread(), "growth of a stopped pool");
    Count done;
    pool->enqueue(boost::make_shared<Task>([&] { done.up(); }));
    done.await(pool, 1);
    require(pool->close(), "close");
}

void outlivesItsClient()
{
    Count done;
    const Pool pool = running(2, 2, 0);
    Pool held = pool;
    // Only the task and its worker still hold the pool: it is destroyed on a worker's thread.
    pool->enqueue(boost::make_shared<Task>([&done, held] { done.up(); }));
    held.reset();
    done.await(pool, 1);
    require(pool->close(), "close");
}

void guards()
{
    const auto mutex = KT::KTMutex::createKTMutex();
    const auto lock = KT::KTMutexRW::createKTMutexRW();
    const Pool pool = running(3, 3, 0);
    Count done;
    int plain = 0;
    int shared = 0;
    for (int i = 0; i < 30; ++i) {
        pool->enqueue(boost::make_shared<Task>([&] {
            {
                bool taken = false;
                const KT::KTCriticalTrueIfLocked attempt(mutex, taken);
                plain += taken ? 0 : 1;
            }
            {
                KT::KTCriticalSection hold(mutex);
                ++plain;
                hold.forceUnlockNow();
            }
            {
                const KT::KTCriticalSectionRead hold(lock);
                require(shared >= 0, "read");
            }
            const KT::KTCriticalSectionWrite hold(lock);
            ++shared;
            done.up();
        }));
    }
    done.await(pool, 30);
    require(pool->close(), "close");
    require(shared == 30 && plain >= 30, "guards");
}

void namedConditions()
{
    KT::KTConditionManager events;
    events.addCondition("go");
    const Pool pool = running(2, 2, 0);
    Count done;
    for (int i = 0; i < 2; ++i) {
        pool->enqueue(boost::make_shared<Task>([&] {
            events.waitForCondition("go");
            done.up();
        }));
    }
    done.await(2, [&] {
        events.triggerCondition("go");  // a trigger is not remembered
        pool->wake();
    });
    require(pool->close(), "close");
}

// ---------------------------------------------------------------------------------------------
// libktasync
// ---------------------------------------------------------------------------------------------

void futuresGroupsAndLoops()
{
    KT::KTPoolOptions options;
    options.threads = 2;
    options.maxThreads = 4;
    KT::KTScopedPool pool(options);
    KT::KTFuture<int> six = KT::submit(pool, "six", [] { return 6; });
    KT::KTFuture<int> product = six.then([](int n) { return n * 7; });
    KT::KTFuture<void> stopped =
        KT::submit(pool, "stop", [](const KT::KTStopToken& stop) { stop.waitFor(-1); });
    KT::KTTaskGroup group(pool);
    std::vector<int> squares(50);
    for (int i = 0; i < 20; ++i) {
        group.run("square", [&squares, i] { squares[static_cast<std::size_t>(i)] = i * i; });
    }
    group.wait();
    KT::parallelFor(pool, 20, 50, [&](int i) { squares[static_cast<std::size_t>(i)] = i * i; });
    const int sum = KT::parallelReduce(pool, 0, 50, 0,
                                       [&](int i) { return squares[static_cast<std::size_t>(i)]; });
    require(sum == 40425, "sum of squares");
    // Mostly a look at a future that is ready, without its lock.
    for (int i = 0; i < 1000 && !product.isReady(); ++i) {
        ro::os::msleep(1);
    }
    require(product.get() == 42, "product");
    stopped.cancel();
    stopped.wait();
}

}  // namespace

int main(int argc, char** argv)
{
    KT::KTThread::setStackSize(0);
    tasksInAPoolThatGrows();
    workersRetire();
    endOfABusyPool(false, Blocker::inCondition, 2, 4);
    endOfABusyPool(true, Blocker::inSleep, 2, 2);
    if (argc < 2 || std::string(argv[1]) != "without-cancelled-waits") {
        endOfABusyPool(true, Blocker::inCondition, 2, 4);
    }
    startsAnew();
    outlivesItsClient();
    guards();
    namedConditions();
    futuresGroupsAndLoops();
    std::puts("exercised");
    return 0;
}
