// Metrics that another file's objects make before main have the buckets of any others.
#include <cstdio>
#include <memory>
#include <vector>

#include <prometheus/registry.h>

#include <ktasync/KTPoolMetrics.h>
#include <ktasync/ktasync.h>

namespace {

std::vector<double> upperBounds()
{
    const auto registry = std::make_shared<prometheus::Registry>();
    const KT::KTScopedPool pool;
    const KT::KTPoolMetrics metrics(pool, registry, "early");
    KT::submit(pool, [] {}).get();
    std::vector<double> bounds;
    for (const prometheus::MetricFamily& family : registry->Collect()) {
        for (const prometheus::ClientMetric& metric : family.metric) {
            for (const prometheus::ClientMetric::Bucket& bucket : metric.histogram.bucket) {
                bounds.push_back(bucket.upper_bound);
            }
        }
    }
    return bounds;
}

// Before objects that state no priority. The program has a copy of KTPoolMetrics.cpp, since the
// objects of a shared library are made before those of a program in any case.
const std::vector<double> beforeMain __attribute__((init_priority(101))) = upperBounds();

}  // namespace

int main()
{
    const std::vector<double> inMain = upperBounds();
    std::printf("upper bounds: %zu before main, %zu in it\n", beforeMain.size(), inMain.size());
    return beforeMain == inMain ? 0 : 1;
}
