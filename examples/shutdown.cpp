/// Two ways to close a pool: gently, which asks the running tasks to stop, and by force, which cuts
/// them off where they block. Either way the queued ones are dropped.
///
/// Prints:
///     gently: the queued task was dropped, the running one has heard of it
///     by force: the queued task was dropped, the running one is unwound
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>

#include <boost/make_shared.hpp>

#include <ktasync/ktasync.h>

/// Closes a pool of one worker, which runs `callable` while another task is queued.
template <typename F>
void closeWhileBusy(bool force, const F& callable)
{
    const auto pool = boost::make_shared<KT::KTThreadPool>(1, 1, 10, 0, 0);
    pool->init(1, 1, 10, 0, 0);
    std::promise<void> begun;
    KT::submit(pool, "running", callable, std::ref(begun));
    KT::KTFuture<void> queued = KT::submit(pool, "queued", [] {});
    const std::future<void> begins = begun.get_future();
    while (begins.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) {
        pool->wake();  // a wake-up may have been lost
    }
    pool->close(force);
    try {
        queued.get();
    } catch (const KT::KTCancelled&) {
        std::printf("the queued task was dropped, ");
    }
}

int main()
{
    bool heard = false;
    std::printf("gently: ");
    closeWhileBusy(false, [&](const KT::KTStopToken& stop, std::promise<void>& begun) {
        begun.set_value();
        heard = stop.waitFor(-1);  // one with work to do asks stop.stopRequested() now and then
    });
    std::puts(heard ? "the running one has heard of it" : "");

    const auto kept = std::make_shared<int>();
    std::printf("by force: ");
    closeWhileBusy(true, [kept](std::promise<void>& begun) {
        begun.set_value();
        KT::KTStopToken().waitFor(-1);  // nobody's token: for ever, whatever the task is asked
    });
    std::puts(kept.use_count() == 1 ? "the running one is unwound" : "");
}
