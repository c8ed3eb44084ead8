#include "PoolContext.h"

#include <algorithm>

namespace KT {
namespace detail {

namespace {

/// All contexts there are.
struct Registry {
    /// Never destroyed: pools may be used until the process is gone.
    static Registry& instance()
    {
        static Registry* const registry = new Registry;
        return *registry;
    }

    /// Read without the mutex: where there are none, finding one must cost nothing.
    std::atomic<int> count{0};
    std::mutex mutex;
    std::vector<std::weak_ptr<PoolContext>> contexts;
};

}  // namespace

PoolContext::PoolContext(const boost::shared_ptr<KTThreadPool>& pool) : target(pool)
{
    ++Registry::instance().count;
}

PoolContext::~PoolContext()
{
    --Registry::instance().count;
}

bool PoolContext::isOf(const boost::shared_ptr<KTThreadPool>& pool) const
{
    // By owner, not by address: another pool may have come to be where one was.
    return !target.owner_before(pool) && !pool.owner_before(target);
}

std::shared_ptr<PoolContext> PoolContext::findLocked(const boost::shared_ptr<KTThreadPool>& pool)
{
    for (const std::weak_ptr<PoolContext>& known : Registry::instance().contexts) {
        std::shared_ptr<PoolContext> context = known.lock();
        if (context && context->isOf(pool)) {
            return context;
        }
    }
    return nullptr;
}

std::shared_ptr<PoolContext> PoolContext::find(const boost::shared_ptr<KTThreadPool>& pool)
{
    Registry& registry = Registry::instance();
    if (registry.count == 0) {
        return nullptr;
    }
    const std::lock_guard<std::mutex> hold(registry.mutex);
    return findLocked(pool);
}

std::shared_ptr<PoolContext> PoolContext::of(const boost::shared_ptr<KTThreadPool>& pool)
{
    Registry& registry = Registry::instance();
    const std::lock_guard<std::mutex> hold(registry.mutex);
    if (std::shared_ptr<PoolContext> known = findLocked(pool)) {
        return known;
    }
    auto& contexts = registry.contexts;
    contexts.erase(std::remove_if(contexts.begin(), contexts.end(),
                                  [](const auto& known) { return known.expired(); }),
                   contexts.end());
    contexts.reserve(contexts.size() + 1);
    auto made = std::make_shared<PoolContext>(pool);
    contexts.push_back(made);
    return made;
}

void PoolContext::jobEnded()
{
    if (--inFlight == 0) {
        const std::lock_guard<std::mutex> hold(mutex);
        noneInFlight.notify_all();
    }
}

bool PoolContext::waitForNone(const Deadline& end)
{
    std::unique_lock<std::mutex> hold(mutex);
    while (inFlight != 0) {
        const boost::shared_ptr<KTThreadPool> pool = target.lock();
        // Once stopped, it never gets to what it still has in its queue.
        if (!pool || pool->status().threads < 1 ||
            !waitForWorkers(hold, noneInFlight, end, [&pool] { pool->wake(); })) {
            return false;
        }
    }
    return true;
}

void PoolContext::report(const TaskReport& report) const
{
    const std::shared_lock<std::shared_mutex> hold(observersMutex);
    for (TaskObserver* const observer : observers) {
        observer->taskEnded(report);
    }
}

void PoolContext::add(TaskObserver& observer)
{
    const std::unique_lock<std::shared_mutex> hold(observersMutex);
    observers.push_back(&observer);
    observed = true;
}

void PoolContext::remove(TaskObserver& observer)
{
    const std::unique_lock<std::shared_mutex> hold(observersMutex);
    observers.erase(std::remove(observers.begin(), observers.end(), &observer), observers.end());
    observed = !observers.empty();
}

}  // namespace detail
}  // namespace KT
