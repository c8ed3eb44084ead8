#include <ktasync/KTPoolMetrics.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <prometheus/counter.h>
#include <prometheus/family.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <kterror/KTError.h>
#include <ktthread/KTThread.h>
#include <ktthread/KTThreadPool.h>

#include <ktasync/detail/TaskObserver.h>

#include "base/Cancellation.h"

namespace KT {

namespace {

[[noreturn]] void refuse(const std::string& why)
{
    throw KTError("KTPoolMetrics", "KTPoolMetrics", why, __FILE__, __LINE__);
}

/// Seconds: from what a task of libktasync costs anyway to what nobody wants to wait. No object:
/// metrics may be made before the objects of this file are.
std::vector<double> boundaries()
{
    return {10e-6, 30e-6, 100e-6, 300e-6, 1e-3, 3e-3, 10e-3, 30e-3, 0.1, 0.3, 1, 3, 10, 30};
}

/// One metric of one pool in a registry that may have those of others; taken out at the end.
template <typename Metric>
class Registered {
public:
    template <typename... Args>
    Registered(prometheus::Family<Metric>& inFamily, const prometheus::Labels& labels,
               const Args&... args)
        : family(inFamily), metric(addNew(labels, args...))
    {
    }
    ~Registered() { family.Remove(&metric); }
    Registered(const Registered&) = delete;
    Registered& operator=(const Registered&) = delete;

    Metric* operator->() { return &metric; }

private:
    template <typename... Args>
    Metric& addNew(const prometheus::Labels& labels, const Args&... args)
    {
        // A family adds a metric that it has already by giving out the same one again.
        static std::mutex oneAtATime;
        const std::lock_guard<std::mutex> hold(oneAtATime);
        if (family.Has(labels)) {
            refuse("the registry has a pool of the name '" + labels.at("pool") + "' already");
        }
        return family.Add(labels, args...);
    }

    prometheus::Family<Metric>& family;
    Metric& metric;
};

using Counter = Registered<prometheus::Counter>;
using Gauge = Registered<prometheus::Gauge>;
using Histogram = Registered<prometheus::Histogram>;

template <typename Builder>
auto& familyOf(Builder builder, prometheus::Registry& registry, const char* name, const char* help)
{
    return builder.Name(name).Help(help).Register(registry);
}

double seconds(detail::TaskReport::Duration time)
{
    return std::chrono::duration<double>(time).count();
}

}  // namespace

class KTASYNC_HIDDEN KTPoolMetrics::Figures : public detail::TaskObserver {
public:
    Figures(const KTPoolRef& poolToWatch, prometheus::Registry& registry, const std::string& name,
            int refreshMs)
        : pool(poolToWatch.pool()),
          labels{{"pool", name}},
          waited(familyOf(prometheus::BuildHistogram(), registry, "ktthread_task_wait_seconds",
                          "Time between submission and start of a task"),
                 labels, boundaries()),
          ran(familyOf(prometheus::BuildHistogram(), registry, "ktthread_task_run_seconds",
                       "Time that the callable of a task ran"),
              labels, boundaries()),
          outcomes(familyOf(prometheus::BuildCounter(), registry, "ktthread_tasks_total",
                            "Tasks that have ended")),
          done(outcomes, with("done")),
          failed(outcomes, with("failed")),
          cancelled(outcomes, with("cancelled")),
          workers(gauge(registry, "ktthread_workers", "Workers"), labels),
          busy(gauge(registry, "ktthread_workers_busy", "Workers that run a task"), labels),
          most(gauge(registry, "ktthread_workers_max", "Workers that there may be"), labels),
          toRetire(gauge(registry, "ktthread_workers_to_retire", "Workers that are to retire"),
                   labels),
          queued(gauge(registry, "ktthread_tasks_queued", "Tasks in the queue"), labels),
          scheduler(poolToWatch.scheduler())
    {
        detail::addObserver(scheduler, *this);
        try {
            refresher = std::thread([this, refreshMs] { refreshUntilTheEnd(refreshMs); });
        } catch (...) {
            detail::removeObserver(scheduler, *this);
            throw;
        }
    }

    ~Figures() override
    {
        const detail::NoCancellation off;
        detail::removeObserver(scheduler, *this);
        {
            const std::lock_guard<std::mutex> hold(mutex);
            isEnding = true;
            ending.notify_one();
        }
        refresher.join();
    }

    Figures(const Figures&) = delete;
    Figures& operator=(const Figures&) = delete;

    /// Whether its thread is here: not in a child of the process that made it.
    bool isOfThisProcess() const { return getpid() == maker; }

    void taskEnded(const detail::TaskReport& report) override
    {
        waited->Observe(seconds(report.waited));
        if (report.hasRun) {
            ran->Observe(seconds(report.ran));
        }
        switch (report.outcome) {
            case detail::Outcome::done: done->Increment(); break;
            case detail::Outcome::failed: failed->Increment(); break;
            default: cancelled->Increment();
        }
    }

private:
    static prometheus::Family<prometheus::Gauge>& gauge(prometheus::Registry& registry,
                                                        const char* name, const char* help)
    {
        return familyOf(prometheus::BuildGauge(), registry, name, help);
    }

    prometheus::Labels with(const char* outcome) const
    {
        prometheus::Labels all = labels;
        all["outcome"] = outcome;
        return all;
    }

    void refreshUntilTheEnd(int refreshMs)
    {
        KTThread::setThreadName("KTMetrics");
        std::unique_lock<std::mutex> hold(mutex);
        while (!isEnding) {
            const KTThreadPoolStatus status = pool->status();
            workers->Set(status.threads);
            busy->Set(status.busyThreads);
            most->Set(status.maxThreads);
            toRetire->Set(status.threadsToRemove);
            queued->Set(status.queuedTasks);
            ending.wait_for(hold, std::chrono::milliseconds(refreshMs));
        }
    }

    const pid_t maker = getpid();
    const boost::shared_ptr<KTThreadPool> pool;
    const prometheus::Labels labels;
    Histogram waited;
    Histogram ran;
    prometheus::Family<prometheus::Counter>& outcomes;
    Counter done;
    Counter failed;
    Counter cancelled;
    Gauge workers;
    Gauge busy;
    Gauge most;
    Gauge toRetire;
    Gauge queued;
    detail::Scheduler& scheduler;  ///< as long as the pool
    std::mutex mutex;
    std::condition_variable ending;
    bool isEnding = false;  ///< under `mutex`
    std::thread refresher;
};

KTPoolMetrics::KTPoolMetrics(const KTPoolRef& pool,
                             const std::shared_ptr<prometheus::Registry>& registry,
                             const std::string& name, int refreshMs)
{
    if (!registry) {
        refuse("there is no registry");
    }
    if (refreshMs < 1) {
        refuse("refreshMs is " + std::to_string(refreshMs) + ": it must be 1 or more");
    }
    const std::string label = name.empty() ? pool.pool()->name() : name;
    if (label.empty()) {
        refuse("there is no name: none is given, and the pool has none");
    }
    keptRegistry = registry;
    figures = std::make_unique<Figures>(pool, *registry, label, refreshMs);
}

KTPoolMetrics::~KTPoolMetrics()
{
    if (!figures->isOfThisProcess()) {
        static_cast<void>(figures.release());  // its locks may be held by threads that aren't here
    }
}

}  // namespace KT
