/// Serves the figures of a pool to Prometheus, until the end of its standard input.
///
///     ./metrics [ADDRESS]    # 127.0.0.1:0, a port that is free, if not given
///     curl http://127.0.0.1:PORT/metrics
///
/// Of what curl gets, these lines are the same each time:
///     ktthread_tasks_total{outcome="done",pool="render"} 9
///     ktthread_tasks_total{outcome="failed",pool="render"} 1
///     ktthread_task_run_seconds_count{pool="render"} 10
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <vector>

#include <prometheus/exposer.h>
#include <prometheus/registry.h>

#include <ktasync/KTPoolMetrics.h>
#include <ktasync/ktasync.h>

int main(int argc, char** argv)
{
    const KT::KTScopedPool pool;

    // Tells of the tasks that are submitted from here on.
    const auto registry = std::make_shared<prometheus::Registry>();
    const KT::KTPoolMetrics metrics(pool, registry, "render");
    prometheus::Exposer exposer(argc > 1 ? argv[1] : "127.0.0.1:0");
    exposer.RegisterCollectable(registry);

    std::vector<KT::KTFuture<void>> pages;
    for (int page = 1; page <= 10; ++page) {
        pages.push_back(KT::submit(pool, "render", [page] {
            if (page == 7) {
                throw std::runtime_error("page 7 is blank");
            }
        }));
    }
    for (KT::KTFuture<void>& page : pages) {
        try {
            page.get();
        } catch (const std::runtime_error&) {
            // Counted as failed.
        }
    }

    std::printf("http://127.0.0.1:%d/metrics\n", exposer.GetListeningPorts().at(0));
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
}
