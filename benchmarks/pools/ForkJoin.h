/// W10: tasks that submit tasks and wait for them.
#pragma once

#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include <ktasync/ktasync.h>

#include "Average.h"
#include "Ours.h"

struct Fibonacci {
    int n;
    int cutOff;  ///< from here down, without tasks
};

inline long fibonacci(int n)
{
    return n < 2 ? n : fibonacci(n - 1) + fibonacci(n - 2);
}

struct KtForkJoin {
    static const char* name() { return "libktasync"; }
    explicit KtForkJoin(int threads) : pool(AsyncPool::optionsFor(threads, threads)) {}

    long run(const Fibonacci& what)
    {
        return KT::submit(pool, "fib", [this, what] { return compute(what.n, what.cutOff); }).get();
    }

private:
    long compute(int n, int cutOff)
    {
        if (n <= cutOff) {
            return fibonacci(n);
        }
        long first = 0;
        KT::KTTaskGroup group(pool);
        group.run("fib", [this, &first, n, cutOff] { first = compute(n - 1, cutOff); });
        const long second = compute(n - 2, cutOff);
        group.wait();
        return first + second;
    }

    KT::KTScopedPool pool;
};

struct TbbForkJoin {
    static const char* name() { return "oneTBB"; }
    explicit TbbForkJoin(int threads)
        : limit(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads)),
          arena(threads)
    {
    }

    long run(const Fibonacci& what)
    {
        return arena.execute([&what] { return compute(what.n, what.cutOff); });
    }

private:
    static long compute(int n, int cutOff)
    {
        if (n <= cutOff) {
            return fibonacci(n);
        }
        long first = 0;
        tbb::task_group group;
        group.run([&first, n, cutOff] { first = compute(n - 1, cutOff); });
        const long second = compute(n - 2, cutOff);
        group.wait();
        return first + second;
    }

    tbb::global_control limit;
    tbb::task_arena arena;
};

/// Milliseconds a run, after a first one.
struct TimeOfForkJoin {
    template <typename Pool>
    static double of(const Fibonacci& what)
    {
        Pool pool(2);
        pool.run(what);
        return 1e3 * averageSeconds([&] { pool.run(what); });
    }
};
