#include <ktasync/KTScopedPool.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include <boost/make_shared.hpp>

#include <kterror/KTError.h>

#include "../scheduler/Scheduler.h"
#include "PoolEnd.h"

namespace KT {

namespace {

/// More than any machine runs; a table of that many workers still fits.
const int mostThreads = 65536;

/// The limit of a pool for which none is chosen. Only tasks that block make it grow that far.
const int usualMost = 64;
const int usualMostPerProcessor = 8;

/// What every platform takes; and less than what only a mistake asks for.
const std::size_t leastStack = std::size_t(128) << 10;
const std::size_t mostStack = std::size_t(1) << 30;

template <typename Number>
void check(bool isSensible, const char* option, Number value, const std::string& range)
{
    if (!isSensible) {
        throw KTError(
            "KTPoolOptions", option,
            std::string(option) + " is " + std::to_string(value) + ": it must be " + range,
            __FILE__, __LINE__);
    }
}

}  // namespace

KTScopedPool::KTScopedPool(const KTPoolOptions& options)
{
    const int processors = availableProcessors();
    const int automatic =
        std::min(std::max(usualMost, processors * usualMostPerProcessor), mostThreads);
    const int most = options.maxThreads.value_or(std::max(automatic, options.threads.value_or(1)));
    const int threads = options.threads.value_or(std::min(processors, most));
    check(threads >= 1 && threads <= mostThreads, "threads", threads, "1 to 65536");
    check(most >= threads && most <= mostThreads, "maxThreads", most,
          std::to_string(threads) + " (threads) to 65536");
    check(options.monitorPeriod >= 0, "monitorPeriod", options.monitorPeriod, "0 or more");
    check(options.idleTimeoutMs != 0, "idleTimeoutMs", options.idleTimeoutMs,
          "1 or more, or negative");
    check(options.spinUs >= 0, "spinUs", options.spinUs, "0 or more");
    const std::size_t stack = options.stackSize.value_or(leastStack);
    check(stack >= leastStack && stack <= mostStack, "stackSize", stack,
          std::to_string(leastStack) + " to " + std::to_string(mostStack) + " (bytes)");
    check(options.stopTimeoutMs >= 0, "stopTimeoutMs", options.stopTimeoutMs, "0 or more");
    check(options.maxQueued >= 0, "maxQueued", options.maxQueued, "0 or more");
    start(options, threads, most);
}

void KTScopedPool::start(const KTPoolOptions& options, int threads, int most)
{
    detail::SchedulerOptions ofScheduler;
    ofScheduler.threads = threads;
    ofScheduler.maxThreads = most;
    ofScheduler.isAdaptive = options.growth == KTPoolOptions::Growth::adaptive;
    ofScheduler.shrinks = ofScheduler.isAdaptive && options.idleTimeoutMs > 0;
    ofScheduler.idleTimeout = std::chrono::milliseconds(options.idleTimeoutMs);
    ofScheduler.spin = std::chrono::microseconds(options.spinUs);
    ofScheduler.processors = availableProcessors();
    ofScheduler.maxQueued = options.maxQueued;
    ofScheduler.whenFull = options.whenFull;
    ofScheduler.stackSize = options.stackSize.value_or(0);
    const int period = ofScheduler.isAdaptive ? 0 : options.monitorPeriod;
    owned = boost::make_shared<KTThreadPool>(threads, most, period, 0, 0);
    try {
        owned->setStackSize(ofScheduler.stackSize);
        owned->setName(options.name);
        owned->setMessages(KTThreadPool::Messages::log);
        scheduler = &detail::Scheduler::attachTo(owned, ofScheduler);
        end = std::make_unique<detail::PoolEnd>(options, owned, *scheduler);
        owned->init(threads, most, period, 0, 0);
    } catch (...) {
        detail::closeSurely(*owned, false, -1);
        throw;
    }
}

KTScopedPool::~KTScopedPool()
{
    if (end) {
        end->closeForGood();
    }
}

KTScopedPool::KTScopedPool(KTScopedPool&& other) noexcept = default;

KTScopedPool& KTScopedPool::operator=(KTScopedPool&& other) noexcept
{
    if (this != &other) {
        const KTScopedPool closing(std::move(*this));
        owned = std::move(other.owned);
        scheduler = other.scheduler;
        end = std::move(other.end);
    }
    return *this;
}

KTThreadPoolStatus KTScopedPool::status() const
{
    return KTPoolRef(*this).pool()->status();
}

bool KTScopedPool::close()
{
    return end && end->close();
}

}  // namespace KT
