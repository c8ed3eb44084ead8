/// W5: loops over many elements, by 2 threads each.
#pragma once

#include <chrono>
#include <cstddef>
#include <numeric>
#include <thread>
#include <vector>

#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include <ktasync/ktasync.h>

using Elements = std::vector<double>;

inline double mapped(double x)
{
    return x * 1.0001 + 0.5;
}

/// KT::parallelReduce and KT::parallelFor; the calling thread works along.
struct KtLoops {
    static const char* name() { return "libktasync"; }
    double sum(const Elements& from)
    {
        return KT::parallelReduce(pool, std::size_t(0), from.size(), 0.0,
                                  [&from](std::size_t i) { return from[i]; });
    }
    void map(const Elements& from, Elements& to)
    {
        KT::parallelFor(pool, std::size_t(0), from.size(),
                        [&](std::size_t i) { to[i] = mapped(from[i]); });
    }
    static KT::KTPoolOptions oneWorker()
    {
        KT::KTPoolOptions options;
        options.threads = 1;
        options.maxThreads = 1;
        return options;
    }
    KT::KTScopedPool pool{oneWorker()};
};

struct TbbLoops {
    static const char* name() { return "oneTBB"; }
    using Range = tbb::blocked_range<std::size_t>;
    double sum(const Elements& from)
    {
        return tbb::parallel_reduce(
            Range(0, from.size()), 0.0,
            [&from](const Range& range, double sum) {
                for (std::size_t i = range.begin(); i != range.end(); ++i) {
                    sum += from[i];
                }
                return sum;
            },
            std::plus<>());
    }
    void map(const Elements& from, Elements& to)
    {
        tbb::parallel_for(Range(0, from.size()), [&](const Range& range) {
            for (std::size_t i = range.begin(); i != range.end(); ++i) {
                to[i] = mapped(from[i]);
            }
        });
    }
    tbb::global_control limit{tbb::global_control::max_allowed_parallelism, 2};
};

struct OpenMpLoops {
    static const char* name() { return "OpenMP"; }
    double sum(const Elements& from)
    {
        double sum = 0;
#pragma omp parallel for num_threads(2) reduction(+ : sum)
        for (std::size_t i = 0; i < from.size(); ++i) {
            sum += from[i];
        }
        return sum;
    }
    void map(const Elements& from, Elements& to)
    {
#pragma omp parallel for num_threads(2)
        for (std::size_t i = 0; i < from.size(); ++i) {
            to[i] = mapped(from[i]);
        }
    }
};

/// Split by hand: one half on a thread made for it.
struct HandSplitLoops {
    static const char* name() { return "std::thread, split by hand"; }
    double sum(const Elements& from)
    {
        const auto half = from.begin() + static_cast<std::ptrdiff_t>(from.size() / 2);
        double second = 0;
        std::thread other([&] { second = std::accumulate(half, from.end(), 0.0); });
        const double first = std::accumulate(from.begin(), half, 0.0);
        other.join();
        return first + second;
    }
    void map(const Elements& from, Elements& to)
    {
        const auto mapHalf = [&](std::size_t first, std::size_t last) {
            for (std::size_t i = first; i < last; ++i) {
                to[i] = mapped(from[i]);
            }
        };
        std::thread other(mapHalf, from.size() / 2, from.size());
        mapHalf(0, from.size() / 2);
        other.join();
    }
};

/// Milliseconds for one loop, the threads being there already where they stay from loop to loop.
struct TimeOfLoop {
    template <typename Loops>
    static double of(const Elements* from, Elements* to)
    {
        Loops loops;
        const auto loop = [&] {
            if (to != nullptr) {
                loops.map(*from, *to);
                return to->back();
            }
            return loops.sum(*from);
        };
        volatile double result = loop();
        const auto start = std::chrono::steady_clock::now();
        result = loop();
        const std::chrono::duration<double, std::milli> took =
            std::chrono::steady_clock::now() - start;
        static_cast<void>(result);
        return took.count();
    }
};
