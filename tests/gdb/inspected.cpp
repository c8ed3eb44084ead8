/// A program with pools of known shape, for gdb to look at once it comes to atRest().
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <ktthread/ktthread.h>

#include "Inside.h"
#include "Waiting.h"

extern "C" {
__attribute__((noinline)) void atRest();
}

namespace inspected {

struct Watched {
    virtual ~Watched() = default;
    int watches = 7;
};

/// Its KTTask is not at its beginning: only the dynamic type tells where the object starts.
struct Primes : Watched, KT::KTTask {
    explicit Primes(const std::string& name) { setTaskName(name); }
    void run() override
    {
        if (heedless) {
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        }
        setExecutionTime();
        gate->pass();
        setEndTime();
    }

    int below = 1000;
    bool heedless = false;  ///< ignores a forced shutdown
    const boost::shared_ptr<Gate> gate = boost::make_shared<Gate>();
};

struct Item : KT::KTTask {
    explicit Item(const std::string& name) { setTaskName(name); }
    void run() override {}
};

using Pool = boost::shared_ptr<KT::KTThreadPool>;
using Task = boost::shared_ptr<KT::KTTask>;

/// A block of the queue has room for 256.
const int manyItems = 300;
const int takenItems = 253;

Pool pool;
Pool many;
Pool made;
Pool closed;
Pool stopping;
Pool cutOff;
Pool nothing;
boost::weak_ptr<KT::KTThreadPool> weakPool;
boost::shared_ptr<Primes> running;
boost::shared_ptr<Primes> done;
boost::shared_ptr<Primes> holding;
boost::shared_ptr<Primes> finishing;
boost::shared_ptr<Primes> ignoring;
Task oddName;
Task noTask;
boost::weak_ptr<KT::KTTask> gone;
KT::KTThreadPool* noPool = nullptr;
KT::KTThreadPool* damagedPool = nullptr;
KT::KTThread* damagedWorker = nullptr;
KT::KTTask* damagedTask = nullptr;
KT::KTTask* base = nullptr;
KT::KTThread* sleeper = nullptr;

Pool makePool(int workers, const char* name = "")
{
    const Pool fresh = boost::make_shared<KT::KTThreadPool>(workers, workers, 10, 0, 0);
    fresh->setName(name);
    fresh->init(workers, workers, 10, 0, 0);
    return fresh;
}

bool arrives(const Pool& where, const boost::shared_ptr<Primes>& task)
{
    return eventually([&] {
        where->wake();
        return task->gate->arrived() == 1;
    });
}

/// Worker 0 runs `running`, worker 1 has finished `done` and sleeps, with two tasks in the queue:
/// as after a wake-up that was lost.
bool fillPool()
{
    pool = makePool(2, "primes");
    weakPool = pool;
    running = boost::make_shared<Primes>("count primes");
    done = boost::make_shared<Primes>("count more");
    pool->enqueue(running);
    pool->enqueue(done);
    if (!arrives(pool, running) || !arrives(pool, done)) {
        return false;
    }
    if (inside::index(*inside::managingThread(*running).lock()) == 1) {
        running.swap(done);
    }
    running->setTaskName("count primes");
    done->setTaskName("count more");
    sleeper = inside::managingThread(*done).lock().get();
    done->gate->open();
    const bool asleep = eventually([] { return threadsNamed("KTThread [sleep").size() == 1; });
    // The worker releases this mutex only in the wait itself.
    const KT::KTCriticalSection hold(inside::wakeMutex(pool));
    inside::tasks(pool).push_back(boost::make_shared<Item>("second"));
    inside::tasks(pool).push_back(boost::make_shared<Item>("third"));
    return asleep;
}

/// A pool of one worker, and the task that it is busy with.
bool occupy(Pool& fresh, boost::shared_ptr<Primes>& task, const char* name)
{
    fresh = makePool(1);
    task = boost::make_shared<Primes>(name);
    task->heedless = true;
    fresh->enqueue(task);
    return arrives(fresh, task);
}

/// The first tasks in the queue are on either side of a block's end.
void fillMany()
{
    std::vector<Task> items;
    for (int i = 0; i < manyItems; ++i) {
        items.push_back(boost::make_shared<Item>("item " + std::to_string(i)));
    }
    many->enqueueAll(items);
    for (int i = 0; i < takenItems; ++i) {
        many->getTask();
    }
}

void makeTheRest()
{
    made = boost::make_shared<KT::KTThreadPool>(3, 5, 10, 0, 0);
    closed = makePool(1);
    closed->close();
    stopping->shutdown(false);
    cutOff->shutdown(true);
    oddName =
        boost::make_shared<Item>(std::string("tab\there, \xff\xc3\xa9, ") + std::string(300, 'x'));
    gone = boost::make_shared<Item>("gone");
    base = running.get();
    // What isn't there, or isn't what it should be.
    const std::size_t room = 4096;
    static char damaged[room];
    std::memset(damaged, 0x5a, room);
    void* const nowhere = damaged;
    damagedPool = static_cast<KT::KTThreadPool*>(nowhere);
    damagedWorker = static_cast<KT::KTThread*>(nowhere);
    damagedTask = static_cast<KT::KTTask*>(nowhere);
    inside::creationTime(*running) = inside::executionTime(*running);
    // Of 2009, so that they can be told from those of today.
    inside::creationTime(*done) = {1234567890, 5};
    inside::executionTime(*done) = {1234567891, 500005};
    inside::endTime(*done) = {1234567895, 5};
}

}  // namespace inspected

void atRest()
{
    std::puts("at rest");
}

int main()
{
    using namespace inspected;
    if (!fillPool() || !occupy(many, holding, "hold") || !occupy(stopping, finishing, "finish") ||
        !occupy(cutOff, ignoring, "ignore the end")) {
        return 1;
    }
    fillMany();
    makeTheRest();
    atRest();
    for (const auto& task : {running, holding, finishing, ignoring}) {
        task->gate->open();
    }
    bool allClosed = true;
    for (const Pool& used : {pool, many, stopping, cutOff}) {
        allClosed = used->close() && allClosed;
    }
    return allClosed ? 0 : 1;
}
