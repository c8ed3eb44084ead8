// A client of libktasync-metrics.
#include <cstdio>
#include <memory>

#include <prometheus/registry.h>

#include <ktasync/KTPoolMetrics.h>
#include <ktasync/ktasync.h>

int main()
{
    const auto registry = std::make_shared<prometheus::Registry>();
    KT::KTScopedPool pool;
    const KT::KTPoolMetrics metrics(pool, registry, "consumer");
    KT::submit(pool, [] {}).get();
    for (const prometheus::MetricFamily& family : registry->Collect()) {
        if (family.name == "ktthread_task_run_seconds") {
            std::printf("%d\n", static_cast<int>(family.metric.at(0).histogram.sample_count));
        }
    }
}
