/// W10: tasks whose results are asked for.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <vector>

#include <prometheus/registry.h>

#include <ktasync/KTPoolMetrics.h>
#include <ktasync/ktasync.h>

#include "Floor.h"
#include "Ours.h"

/// libktasync's submit.
struct KtFutures {
    static const char* name() { return "libktasync"; }
    explicit KtFutures(int workers) : pool(AsyncPool::optionsFor(workers, workers)) {}
    KT::KTFuture<int> submit(int n)
    {
        return KT::submit(pool, "undefined", [n] { return n; });
    }
    KT::KTScopedPool pool;
};

/// The standard library's task and future, on the plain pool.
struct StandardFutures {
    static const char* name() { return "std::packaged_task"; }
    explicit StandardFutures(int workers) : pool(workers) {}
    std::future<int> submit(int n)
    {
        const auto task = std::make_shared<std::packaged_task<int()>>([n] { return n; });
        pool.submit([task] { (*task)(); });
        return task->get_future();
    }
    FloorPool pool;
};

/// Nanoseconds a task, of many that are submitted first, and then asked for in their order.
struct TimeOfFutures {
    template <typename Pool>
    static double of(int tasks)
    {
        Pool pool(2);
        std::vector<decltype(pool.submit(0))> futures;
        futures.reserve(static_cast<std::size_t>(tasks));
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < tasks; ++i) {
            futures.push_back(pool.submit(i));
        }
        long sum = 0;
        for (auto& future : futures) {
            sum += future.get();
        }
        const std::chrono::duration<double, std::nano> took =
            std::chrono::steady_clock::now() - start;
        return sum == static_cast<long>(tasks) * (tasks - 1) / 2 ? took.count() / tasks : -1;
    }
};

/// libktasync's post to a pool whose figures are kept.
class ObservedPool : public AsyncPool {
public:
    explicit ObservedPool(int workers)
        : AsyncPool(workers),
          metrics(scoped(), std::make_shared<prometheus::Registry>(), "observed")
    {
    }

private:
    const KT::KTPoolMetrics metrics;
};
