/// A pool grows by itself while nearly all its workers are busy. Told to, it grows further, or
/// shrinks if it has more than 18 workers.
///
/// Prints:
///     workers at first: 1
///     workers with 4 busy: 5
///     workers with 15 more: 20
///     workers with 2 fewer: 18
#include <chrono>
#include <cstdio>
#include <future>
#include <utility>
#include <vector>

#include <ktasync/ktasync.h>

/// Keeps a worker busy until `end` is ready; returns once it is busy.
KT::KTFuture<void> occupyWorker(const KT::KTScopedPool& pool, const std::shared_future<void>& end)
{
    std::promise<void> begun;
    const std::future<void> begins = begun.get_future();
    KT::KTFuture<void> ends = KT::submit(pool, "busy", [end, begun = std::move(begun)]() mutable {
        begun.set_value();
        end.wait();
    });
    while (begins.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) {
        pool.pool()->wake();  // a wake-up may have been lost
    }
    return ends;
}

int main()
{
    KT::KTPoolOptions options;
    options.threads = 1;
    options.maxThreads = 20;
    const KT::KTScopedPool pool(options);
    std::printf("workers at first: %d\n", pool.status().threads);

    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    std::vector<KT::KTFuture<void>> busy;
    while (busy.size() < 4) {
        busy.push_back(occupyWorker(pool, ended));
    }
    std::printf("workers with 4 busy: %d\n", pool.status().threads);
    pool.pool()->adjustThread(15);
    std::printf("workers with 15 more: %d\n", pool.status().threads);
    end.set_value();

    pool.pool()->adjustThread(-2);
    while (pool.status().threads > 18) {
        KT::submit(pool, "wake", [] {}).get();  // a worker retires when it is woken next
    }
    std::printf("workers with 2 fewer: %d\n", pool.status().threads);
}
