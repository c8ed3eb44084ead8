#include <cstdio>
#include <memory>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <prometheus/exposer.h>
#include <prometheus/registry.h>

#include <ktasync/KTPoolMetrics.h>

#include "Async.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// A registry with the server that exposes it.
class PoolMetrics : public testing::Test {
protected:
    PoolMetrics() { exposer.RegisterCollectable(registry); }

    /// What a monitoring system gets.
    std::string scrape() const
    {
        const std::string command = "curl -sS --max-time 20 http://127.0.0.1:" +
                                    std::to_string(exposer.GetListeningPorts().at(0)) + "/metrics";
        const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
        std::string text;
        for (int c; (c = std::fgetc(pipe.get())) != EOF;) {
            text += static_cast<char>(c);
        }
        return text;
    }

    bool eventuallyScrapes(const std::string& line) const
    {
        return eventually([&] { return scrape().find(line) != std::string::npos; });
    }

    /// Of all pools and outcomes, without a server in between.
    double countedTasks() const
    {
        double tasks = 0;
        for (const prometheus::MetricFamily& family : registry->Collect()) {
            if (family.name == "ktthread_tasks_total") {
                for (const prometheus::ClientMetric& metric : family.metric) {
                    tasks += metric.counter.value;
                }
            }
        }
        return tasks;
    }

    const std::shared_ptr<prometheus::Registry> registry = std::make_shared<prometheus::Registry>();
    prometheus::Exposer exposer{"127.0.0.1:0"};
};

TEST_F(PoolMetrics, InAForkedChildDoNothing)
{
    const KT::KTScopedPool pool(fixedSize(1));
    auto metrics = std::make_unique<KT::KTPoolMetrics>(pool, registry, "forked", 60000);
    ASSERT_TRUE(
        eventuallyScrapes("ktthread_workers{pool=\"forked\"} 1"));  // then its thread sleeps
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        metrics.reset();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(PoolMetrics, CountsTasksByTheirOutcome)
{
    KT::KTScopedPool pool;
    const KT::KTPoolMetrics metrics(pool, registry, "render");
    KT::submit(pool, [] {}).get();
    KT::submit(pool, [] {}).get();
    EXPECT_THROW(KT::submit(pool, [] { throw 1; }).get(), int);
    EXPECT_THROW(KT::submit(pool, [] { throw KT::KTCancelled("gave up"); }).get(), KT::KTCancelled);
    KT::KTTaskGroup group(pool);
    group.run([] {});
    group.wait();
    EXPECT_THAT(scrape(),
                AllOf(HasSubstr("ktthread_tasks_total{outcome=\"done\",pool=\"render\"} 3"),
                      HasSubstr("ktthread_tasks_total{outcome=\"failed\",pool=\"render\"} 1"),
                      HasSubstr("ktthread_tasks_total{outcome=\"cancelled\",pool=\"render\"} 1"),
                      HasSubstr("ktthread_task_wait_seconds_count{pool=\"render\"} 5"),
                      HasSubstr("ktthread_task_run_seconds_count{pool=\"render\"} 5")));
}

TEST_F(PoolMetrics, TasksThatNeverBeganHaveNoRunTime)
{
    HeldPool held;
    const KT::KTPoolMetrics metrics(held.pool, registry, "held");
    KT::KTFuture<void> future = KT::submit(held.pool, [] {});
    future.cancel();
    EXPECT_THAT(scrape(),
                AllOf(HasSubstr("ktthread_tasks_total{outcome=\"cancelled\",pool=\"held\"} 1"),
                      HasSubstr("ktthread_task_wait_seconds_count{pool=\"held\"} 1"),
                      HasSubstr("ktthread_task_run_seconds_count{pool=\"held\"} 0")));
}

TEST_F(PoolMetrics, HistogramsAreInSeconds)
{
    HeldPool held;
    const KT::KTPoolMetrics metrics(held.pool, registry, "held");
    const auto sleep = [](const KT::KTStopToken& stop) { stop.waitFor(40); };
    KT::KTFuture<void> first = KT::submit(held.pool, sleep);
    KT::KTFuture<void> second = KT::submit(held.pool, sleep);
    held.release();
    second.get();
    EXPECT_THAT(
        scrape(),
        AllOf(HasSubstr("ktthread_task_run_seconds_bucket{pool=\"held\",le=\"0.03\"} 0"),
              HasSubstr("ktthread_task_run_seconds_bucket{pool=\"held\",le=\"30\"} 2"),
              // The second one waited for the first one.
              Not(HasSubstr("ktthread_task_wait_seconds_bucket{pool=\"held\",le=\"0.03\"} 2"))));
}

TEST_F(PoolMetrics, GaugesFollowThePool)
{
    HeldPool held;
    const KT::KTPoolMetrics metrics(held.pool, registry, "gauged", 5);
    KT::KTFuture<void> queued = KT::submit(held.pool, [] {});
    EXPECT_TRUE(eventuallyScrapes("ktthread_tasks_queued{pool=\"gauged\"} 1"));
    EXPECT_THAT(scrape(), AllOf(HasSubstr("ktthread_workers{pool=\"gauged\"} 1"),
                                HasSubstr("ktthread_workers_busy{pool=\"gauged\"} 1"),
                                HasSubstr("ktthread_workers_max{pool=\"gauged\"} 1"),
                                HasSubstr("ktthread_workers_to_retire{pool=\"gauged\"} 0")));
    held.release();
    queued.get();
    EXPECT_TRUE(eventuallyScrapes("ktthread_workers_busy{pool=\"gauged\"} 0"));
    held.pool.close();
    EXPECT_TRUE(eventuallyScrapes("ktthread_workers{pool=\"gauged\"} 0"));
}

TEST_F(PoolMetrics, OfAPoolOfTheCoreCountToo)
{
    const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(1, 1, 0, 0, 0);
    {
        const KT::KTPoolMetrics metrics(pool, registry, "core");
        KT::submit(pool, [] {}).get();
        EXPECT_THAT(scrape(), HasSubstr("ktthread_tasks_total{outcome=\"done\",pool=\"core\"} 1"));
    }
    KT::submit(pool, [] {}).get();
    EXPECT_THAT(scrape(), Not(HasSubstr("pool=\"core\"")));
    EXPECT_TRUE(pool->close());
}

TEST_F(PoolMetrics, OfSeveralPoolsShareARegistry)
{
    KT::KTScopedPool first;
    KT::KTScopedPool second;
    const KT::KTPoolMetrics ofFirst(first, registry, "first");
    const KT::KTPoolMetrics ofSecond(second, registry, "second");
    KT::submit(first, [] {}).get();
    EXPECT_THAT(scrape(),
                AllOf(HasSubstr("ktthread_tasks_total{outcome=\"done\",pool=\"first\"} 1"),
                      HasSubstr("ktthread_tasks_total{outcome=\"done\",pool=\"second\"} 0")));
    const auto error = thrownBy<KT::KTError>([&] { KT::KTPoolMetrics(second, registry, "first"); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->toString(), HasSubstr("'first' already"));
    EXPECT_THAT(scrape(), HasSubstr("ktthread_tasks_total{outcome=\"done\",pool=\"first\"} 1"));
}

TEST_F(PoolMetrics, HaveThePoolsNameUnlessTheyAreGivenOne)
{
    KT::KTPoolOptions options;
    options.name = "render";
    KT::KTScopedPool pool(options);
    const KT::KTPoolMetrics byDefault(pool, registry);
    const KT::KTPoolMetrics given(pool, registry, "given");
    EXPECT_THAT(scrape(), AllOf(HasSubstr("ktthread_workers{pool=\"render\"}"),
                                HasSubstr("ktthread_workers{pool=\"given\"}")));
}

TEST_F(PoolMetrics, InvalidOptionsAreRefused)
{
    KT::KTScopedPool pool;
    EXPECT_THROW(KT::KTPoolMetrics(pool, nullptr, "name"), KT::KTError);
    EXPECT_THROW(KT::KTPoolMetrics(pool, registry), KT::KTError);  // nor has the pool a name
    EXPECT_THROW(KT::KTPoolMetrics(pool, registry, "name", 0), KT::KTError);
}

TEST_F(PoolMetrics, MayEndWhileThePoolWorks)
{
    KT::KTScopedPool pool;
    std::atomic<bool> goOn(true);
    std::atomic<int> submitted(0);
    std::atomic<int> ran(0);
    std::thread client([&] {
        while (goOn) {
            ++submitted;
            KT::submit(pool, [&ran] { ++ran; }).get();
        }
    });
    for (int round = 0; round < 200; ++round) {
        const KT::KTPoolMetrics metrics(pool, registry, "brief");
        EXPECT_TRUE(eventually([this] { return countedTasks() > 0; }));
    }
    goOn = false;
    client.join();
    EXPECT_EQ(ran, submitted);
    EXPECT_THAT(scrape(), Not(HasSubstr("pool=\"brief\"")));
}

}  // namespace
