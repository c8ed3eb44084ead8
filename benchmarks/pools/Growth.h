/// W6: whether a task's cost depends on how many are queued, or on how many workers there are.
#pragma once

#include <unistd.h>
#include <chrono>
#include <future>

#include <cstdio>

#include "Average.h"
#include "Countdown.h"

/// A pool of one worker that a task keeps from working until the gate is opened.
template <typename Pool>
class HeldPool {
public:
    HeldPool() : pool(1), opened(gate.get_future().share())
    {
        std::promise<void> entered;
        pool.submit([this, &entered] {
            entered.set_value();
            opened.wait();
        });
        entered.get_future().wait();
    }
    void open() { gate.set_value(); }

    Pool pool;

private:
    std::promise<void> gate;
    std::shared_future<void> opened;
};

/// Nanoseconds a task, to queue `tasks` of them and then to work them off.
struct TimeOfQueue {
    template <typename Pool>
    static double of(int tasks)
    {
        Countdown countdown(tasks);
        HeldPool<Pool> held;
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < tasks; ++i) {
            held.pool.submit([&countdown] { countdown.count(); });
        }
        held.open();
        countdown.wait(held.pool);
        const std::chrono::duration<double, std::nano> took =
            std::chrono::steady_clock::now() - start;
        return took.count() / tasks;
    }
};

/// Nanoseconds a task, of empty ones given to `workers` workers: all at once, or each when the one
/// before has ended, so that all workers but one sleep.
struct TimeOfWorkers {
    template <typename Pool>
    static double of(int workers, int tasks, bool oneByOne)
    {
        Pool pool(workers);
        run(pool, workers, false);  // all are there
        return 1e9 * averageSeconds([&] { run(pool, tasks, oneByOne); }) / tasks;
    }

private:
    template <typename Pool>
    static void run(Pool& pool, int tasks, bool oneByOne)
    {
        const int atOnce = oneByOne ? 1 : tasks;
        for (int done = 0; done < tasks; done += atOnce) {
            Countdown countdown(atOnce);
            for (int i = 0; i < atOnce; ++i) {
                pool.submit([&countdown] { countdown.count(); });
            }
            countdown.wait(pool);
        }
    }
};

/// Bytes of this process, as /proc has them.
struct Memory {
    double virtualBytes = 0;
    double residentBytes = 0;

    static Memory now()
    {
        long pages[2] = {0, 0};
        if (std::FILE* const file = std::fopen("/proc/self/statm", "r")) {
            if (std::fscanf(file, "%ld %ld", &pages[0], &pages[1]) != 2) {
                pages[0] = pages[1] = 0;
            }
            std::fclose(file);
        }
        const double page = static_cast<double>(sysconf(_SC_PAGESIZE));
        return {static_cast<double>(pages[0]) * page, static_cast<double>(pages[1]) * page};
    }
    double of(bool isResident) const { return isResident ? residentBytes : virtualBytes; }
};

/// KiB that a worker takes, of `workers` that have each had something to do.
struct MemoryOfWorker {
    template <typename Pool>
    static double of(int workers, bool isResident)
    {
        const double before = Memory::now().of(isResident);
        Pool pool(workers);
        Countdown countdown(workers * 4);
        for (int i = 0; i < workers * 4; ++i) {
            pool.submit([&countdown] {
                usleep(200);
                countdown.count();
            });
        }
        countdown.wait(pool);
        return (Memory::now().of(isResident) - before) / 1024 / workers;
    }
};

/// Bytes that a queued task takes.
struct MemoryOfTask {
    template <typename Pool>
    static double of(int tasks)
    {
        Countdown countdown(tasks);
        HeldPool<Pool> held;
        const double before = Memory::now().virtualBytes;
        for (int i = 0; i < tasks; ++i) {
            held.pool.submit([&countdown] { countdown.count(); });
        }
        const double after = Memory::now().virtualBytes;
        held.open();
        countdown.wait(held.pool);
        return (after - before) / tasks;
    }
};
