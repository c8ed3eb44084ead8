/// busy WORKERS MAX-WORKERS: a process to look at, which does as told on standard input.
///
///     run NAME COUNT    so many tasks of that name, which wait
///     spin NAME COUNT   ... which keep a processor busy
///     pulse NAME COUNT  ... which wake up ten times a second
///     release NAME      lets the tasks of that name end
///     grow COUNT        so many workers more
///     shrink COUNT      so many workers may retire
///     pool NAME COUNT   a pool of that name, with so many workers: what follows is for that one
///     quit              like the end of the input
///
/// Answers "done" when a command has taken effect: tasks run or have ended, workers are there or
/// gone.
#include <atomic>
#include <condition_variable>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>

#include <ktthread/ktthread.h>

namespace {

/// What the tasks of one name share.
struct Batch {
    std::mutex mutex;
    std::condition_variable changed;
    std::atomic<bool> released{false};
    std::atomic<int> running{0};
};

enum class Manner { waits, spins, pulses };

class BatchTask : public KT::KTTask {
public:
    BatchTask(const std::string& name, boost::shared_ptr<Batch> sharedBatch, Manner runsSo)
        : batch(std::move(sharedBatch)), manner(runsSo)
    {
        setTaskName(name);
    }

    void run() override
    {
        ++batch->running;
        while (manner != Manner::waits && !batch->released) {
            if (manner == Manner::pulses) {
                ro::os::msleep(100);
            }
        }
        std::unique_lock<std::mutex> hold(batch->mutex);
        batch->changed.wait(hold, [this] { return batch->released.load(); });
        --batch->running;
    }

private:
    const boost::shared_ptr<Batch> batch;
    const Manner manner;
};

class Demo {
public:
    Demo(int workers, int maxWorkers) { add("", workers, maxWorkers); }

    ~Demo()
    {
        for (const auto& [name, batch] : batches) {
            release(*batch);
        }
        for (const auto& each : pools) {
            each->close();
        }
    }
    Demo(const Demo&) = delete;
    Demo& operator=(const Demo&) = delete;

    void add(const std::string& name, int workers, int maxWorkers)
    {
        pool = boost::make_shared<KT::KTThreadPool>(workers, maxWorkers, 0, 0, 0);
        pools.push_back(pool);
        pool->setName(name);
        pool->init(workers, maxWorkers, 0, 0, 0);
    }

    void run(const std::string& name, int count, Manner manner)
    {
        boost::shared_ptr<Batch>& batch = batches[name];
        if (!batch || batch->released) {
            batch = boost::make_shared<Batch>();
        }
        const int wanted = batch->running + count;
        for (int i = 0; i < count; ++i) {
            pool->enqueue(boost::make_shared<BatchTask>(name, batch, manner));
        }
        while (batch->running < wanted) {
            pool->wake();
            ro::os::msleep(1);
        }
    }

    void release(const std::string& name)
    {
        if (const auto found = batches.find(name); found != batches.end()) {
            release(*found->second);
        }
    }

    void resize(int delta)
    {
        const int wanted = pool->status().threads + delta;
        pool->adjustThread(delta);
        while (pool->status().threads != wanted) {
            // A task without a name wakes a sleeper, which checks whether to retire before it looks
            // for tasks.
            pool->enqueue(boost::make_shared<Nothing>());
            pool->wake();
            ro::os::msleep(1);
        }
    }

private:
    struct Nothing : KT::KTTask {
        void run() override {}
    };

    static void release(Batch& batch)
    {
        {
            const std::lock_guard<std::mutex> hold(batch.mutex);
            batch.released = true;
        }
        batch.changed.notify_all();
        while (batch.running > 0) {
            ro::os::msleep(1);
        }
    }

    std::map<std::string, boost::shared_ptr<Batch>> batches;
    std::vector<boost::shared_ptr<KT::KTThreadPool>> pools;
    boost::shared_ptr<KT::KTThreadPool> pool;  ///< the latest
};

bool obey(Demo& demo, const std::string& command)
{
    std::string name;
    int count = 0;
    if (command == "run" || command == "spin" || command == "pulse") {
        std::cin >> name >> count;
        demo.run(name, count,
                 command == "run"    ? Manner::waits
                 : command == "spin" ? Manner::spins
                                     : Manner::pulses);
    } else if (command == "release") {
        std::cin >> name;
        demo.release(name);
    } else if (command == "pool") {
        std::cin >> name >> count;
        demo.add(name, count, count);
    } else if (command == "grow" || command == "shrink") {
        std::cin >> count;
        demo.resize(command == "grow" ? count : -count);
    } else {
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "busy WORKERS MAX-WORKERS\n";
        return 2;
    }
    Demo demo(std::stoi(argv[1]), std::stoi(argv[2]));
    std::string command;
    while (std::cin >> command && obey(demo, command)) {
        std::cout << "done" << std::endl;
    }
}
