/// \file
/// The figures of a pool for a monitoring system. All of libktasync-metrics, a library of its own,
/// since it needs prometheus-cpp.
#pragma once

#include <memory>
#include <string>

#include <ktasync/KTPoolRef.h>
#include <ktasync/KTScopedPool.h>
#include <ktasync/export.h>

namespace prometheus {
class Registry;
}

namespace KT {

/// Keeps figures of a pool in a prometheus::Registry, from which that library's own server exposes
/// them:
/// \code
/// const auto registry = std::make_shared<prometheus::Registry>();
/// const KT::KTPoolMetrics metrics(pool, registry, "render");
/// prometheus::Exposer exposer("127.0.0.1:9100");
/// exposer.RegisterCollectable(registry);
/// \endcode
/// | metric                              | kind      | of                                         |
/// |-------------------------------------|-----------|--------------------------------------------|
/// | ktthread_task_wait_seconds          | histogram | the time between submission and start      |
/// | ktthread_task_run_seconds           | histogram | the time that the callable ran             |
/// | ktthread_tasks_total{outcome="..."} | counter   | tasks done, failed, cancelled              |
/// | ktthread_workers                    | gauge     | threads of KTThreadPoolStatus              |
/// | ktthread_workers_busy               | gauge     | busyThreads of KTThreadPoolStatus          |
/// | ktthread_workers_max                | gauge     | maxThreads of KTThreadPoolStatus           |
/// | ktthread_workers_to_retire          | gauge     | threadsToRemove of KTThreadPoolStatus      |
/// | ktthread_tasks_queued               | gauge     | queuedTasks of KTThreadPoolStatus          |
///
/// All have the label `pool`. The first three tell of tasks of this library that were submitted
/// since; what a shutdown dropped or cut off counts as cancelled, and only tasks that began have a
/// run time. A task is counted before its future is ready. The gauges are brought up to date every
/// `refreshMs` milliseconds, by a thread named "KTMetrics".
///
/// Several may share a registry under different names. Constructing and destroying it may happen on
/// any thread, while the pool works. It can't be copied. It shares the pool and the registry.
///
/// \ingroup ktasync-metrics
class KTASYNC_EXPORT KTPoolMetrics {
public:
    /// Starts to keep them. Throws KTError without a registry or any name, for a `refreshMs` below
    /// 1, and for a name that the registry has already; std::bad_alloc; std::system_error if the
    /// thread can't be made. Doesn't block.
    ///
    /// \param pool       is kept alive, and may be closed
    /// \param registry   that the figures are put into
    /// \param name       what the label `pool` says; empty: the pool's name
    /// \param refreshMs  milliseconds between two looks for the gauges; 1 or more
    KTPoolMetrics(const KTPoolRef& pool, const std::shared_ptr<prometheus::Registry>& registry,
                  const std::string& name = std::string(), int refreshMs = 1000);

    /// Takes the pool's figures out of the registry. Waits for its own thread, not for the pool's.
    /// In a child of the process that made it (fork) it does nothing.
    ~KTPoolMetrics();

    KTPoolMetrics(const KTPoolMetrics&) = delete;
    KTPoolMetrics& operator=(const KTPoolMetrics&) = delete;

private:
    class Figures;
    std::shared_ptr<prometheus::Registry> keptRegistry;
    std::unique_ptr<Figures> figures;
};

}  // namespace KT
