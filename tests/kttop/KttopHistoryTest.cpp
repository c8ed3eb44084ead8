#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "History.h"
#include "Sparkline.h"

namespace {

const std::int64_t second = 1000000000;

WorkerReading worker(int tid, WorkerState state, const std::string& task = "")
{
    WorkerReading reading;
    reading.tid = tid;
    reading.start = 100;
    reading.state = state;
    reading.task = task;
    return reading;
}

Sample at(double seconds, std::vector<WorkerReading> workers)
{
    Sample sample;
    sample.atNs = static_cast<std::int64_t>(seconds * second);
    sample.workers = std::move(workers);
    sample.otherThreads = 2;
    return sample;
}

TEST(KttopHistory, CountsStates)
{
    History history;
    history.add(at(0, {worker(1, WorkerState::running, "a"), worker(2, WorkerState::finished, "a"),
                       worker(3, WorkerState::sleeping), worker(4, WorkerState::sleeping),
                       worker(5, WorkerState::sleeping), worker(6, WorkerState::idle),
                       worker(7, WorkerState::fresh)}));
    const Counts counts = history.snapshot().counts;
    EXPECT_EQ(counts.workers, 7);
    EXPECT_EQ(counts.running, 2);
    EXPECT_EQ(counts.sleeping, 3);
    EXPECT_EQ(counts.idle, 1);
    EXPECT_EQ(counts.fresh, 1);
    EXPECT_EQ(counts.otherThreads, 2);
}

TEST(KttopHistory, HasSharesAndRatesFromTheSecondSampleOn)
{
    WorkerReading before = worker(1, WorkerState::running, "a");
    before.cpuNs = 1000;
    before.waitNs = 2000;
    before.voluntary = 10;
    before.involuntary = 20;
    WorkerReading after = before;
    after.cpuNs += second / 2;
    after.waitNs = 2000 + second / 4;
    after.voluntary += 6;
    after.involuntary += 3;
    History history;
    history.add(at(5, {before}));
    EXPECT_FALSE(history.snapshot().workers[0].hasRates);
    history.add(at(7, {after}));
    const Snapshot snapshot = history.snapshot();
    const Worker& seen = snapshot.workers[0];
    EXPECT_TRUE(seen.hasRates);
    EXPECT_TRUE(seen.hasSwitchRates);
    EXPECT_DOUBLE_EQ(seen.cpuPercent, 25);
    EXPECT_DOUBLE_EQ(seen.waitPercent, 12.5);
    EXPECT_DOUBLE_EQ(seen.voluntaryRate, 3);
    EXPECT_DOUBLE_EQ(seen.involuntaryRate, 1.5);
    EXPECT_DOUBLE_EQ(snapshot.cpuPercent, 25);
    EXPECT_DOUBLE_EQ(snapshot.secondsBetween, 2);
}

TEST(KttopHistory, StartsAgainForAnotherThreadWithTheSameNumber)
{
    WorkerReading before = worker(1, WorkerState::running, "a");
    WorkerReading after = before;
    after.start = 200;
    after.cpuNs = second;
    History history;
    history.add(at(0, {before}));
    history.add(at(1, {after}));
    EXPECT_FALSE(history.snapshot().workers[0].hasRates);
    EXPECT_DOUBLE_EQ(history.snapshot().workers[0].stateSeconds, 0);
}

TEST(KttopHistory, TimesAStateFromItsFirstSight)
{
    History history;
    history.add(at(0, {worker(1, WorkerState::running, "a")}));
    history.add(at(3, {worker(1, WorkerState::running, "a")}));
    EXPECT_DOUBLE_EQ(history.snapshot().workers[0].stateSeconds, 3);
    EXPECT_TRUE(history.snapshot().workers[0].sinceBefore);
    history.add(at(4, {worker(1, WorkerState::running, "b")}));
    EXPECT_DOUBLE_EQ(history.snapshot().workers[0].stateSeconds, 0);
    EXPECT_FALSE(history.snapshot().workers[0].sinceBefore);
    history.add(at(6, {worker(1, WorkerState::running, "b"), worker(2, WorkerState::fresh)}));
    EXPECT_DOUBLE_EQ(history.snapshot().workers[0].stateSeconds, 2);
    EXPECT_FALSE(history.snapshot().workers[1].sinceBefore);
    history.add(at(7, {worker(1, WorkerState::idle)}));
    EXPECT_DOUBLE_EQ(history.snapshot().workers[0].stateSeconds, 0);
}

TEST(KttopHistory, KnowsASleeperThatWasAwakeMeanwhile)
{
    WorkerReading sleeper = worker(1, WorkerState::sleeping);
    sleeper.voluntary = 5;
    History history;
    history.add(at(0, {sleeper}));
    history.add(at(2, {sleeper}));
    EXPECT_DOUBLE_EQ(history.snapshot().workers[0].stateSeconds, 2);
    ++sleeper.voluntary;
    history.add(at(4, {sleeper}));
    EXPECT_DOUBLE_EQ(history.snapshot().workers[0].stateSeconds, 0);
    EXPECT_FALSE(history.snapshot().workers[0].sinceBefore);
}

TEST(KttopHistory, KnowsASleeperThatWasAwakeByItsSlicesWhereTheyAreTold)
{
    WorkerReading sleeper = worker(1, WorkerState::sleeping);
    sleeper.slices = 5;
    sleeper.hasDetails = false;
    History history;
    history.add(at(0, {sleeper}));
    history.add(at(2, {sleeper}));
    sleeper.hasDetails = true;
    sleeper.voluntary = 7;
    history.add(at(3, {sleeper}));
    EXPECT_DOUBLE_EQ(history.snapshot().workers[0].stateSeconds, 3);
    ++*sleeper.slices;
    history.add(at(4, {sleeper}));
    EXPECT_DOUBLE_EQ(history.snapshot().workers[0].stateSeconds, 0);
}

/// A worker whose details were not read, and then with those.
struct Switches {
    History history;
    WorkerReading reading = worker(1, WorkerState::running, "a");

    void sample(double seconds)
    {
        reading.hasDetails = false;
        history.add(at(seconds, {worker(0, WorkerState::idle), reading}));
    }
    void details(std::uint64_t voluntary, std::uint64_t involuntary)
    {
        reading.hasDetails = true;
        reading.voluntary = voluntary;
        reading.involuntary = involuntary;
        history.addDetails(reading);
    }
    Worker last() const { return history.snapshot().workers[1]; }
};

TEST(KttopHistory, HasRatesOfSwitchesSinceTheDetailsBefore)
{
    Switches switches;
    switches.sample(0);
    EXPECT_FALSE(switches.last().reading.hasDetails);
    switches.details(10, 4);
    EXPECT_TRUE(switches.last().reading.hasDetails);
    EXPECT_FALSE(switches.last().hasSwitchRates);
    switches.sample(1);
    EXPECT_TRUE(switches.last().hasRates);
    EXPECT_FALSE(switches.last().reading.hasDetails);
    EXPECT_FALSE(switches.last().hasSwitchRates);
    switches.sample(2);
    switches.sample(4);
    switches.details(18, 6);
    EXPECT_TRUE(switches.last().hasSwitchRates);
    EXPECT_DOUBLE_EQ(switches.last().voluntaryRate, 2);
    EXPECT_DOUBLE_EQ(switches.last().involuntaryRate, 0.5);
    switches.sample(5);
    switches.details(19, 6);
    EXPECT_DOUBLE_EQ(switches.last().voluntaryRate, 1);
    EXPECT_EQ(switches.history.snapshot().workers[0].reading.voluntary, 0U);  // another's
}

TEST(KttopHistory, HasNoRatesOfSwitchesOverATimeLongGone)
{
    Switches switches;
    switches.sample(0);
    switches.details(10, 4);
    switches.sample(6);
    switches.sample(longestRateSeconds + 1);
    switches.details(20, 4);
    EXPECT_TRUE(switches.last().reading.hasDetails);
    EXPECT_FALSE(switches.last().hasSwitchRates);
    // But over the time between two samples, however long.
    switches.sample(100);
    switches.details(120, 4);
    EXPECT_TRUE(switches.last().hasSwitchRates);
    EXPECT_DOUBLE_EQ(switches.last().voluntaryRate, 100 / (99 - longestRateSeconds));
}

TEST(KttopHistory, HasNoRatesOfSwitchesBetweenTwoThreadsOfOneNumber)
{
    Switches switches;
    switches.sample(0);
    switches.details(10, 4);
    switches.reading.start = 200;
    switches.sample(1);
    switches.details(20, 4);
    EXPECT_FALSE(switches.last().hasSwitchRates);
}

TEST(KttopHistory, TalliesTasksBySharesOfLooks)
{
    History history;
    history.add(at(0, {worker(1, WorkerState::running, "b"), worker(2, WorkerState::running, "a"),
                       worker(3, WorkerState::sleeping)}));
    history.add(at(1, {worker(1, WorkerState::finished, "b"), worker(2, WorkerState::idle)}));
    const Snapshot snapshot = history.snapshot();
    ASSERT_EQ(snapshot.tasks.size(), 2U);
    EXPECT_EQ(snapshot.tasks[0].task, "b");
    EXPECT_EQ(snapshot.tasks[0].looks, 2U);
    EXPECT_EQ(snapshot.tasks[1].task, "a");
    EXPECT_EQ(snapshot.tasks[1].looks, 1U);
    EXPECT_EQ(snapshot.taskLooks, 3U);
}

TEST(KttopHistory, ForgetsWhatIsOlderThanItsTime)
{
    History history;
    history.add(at(0, {worker(1, WorkerState::running, "old")}));
    history.add(at(200, {worker(1, WorkerState::running, "new")}));
    history.add(at(historySeconds, {worker(1, WorkerState::running, "new")}));
    EXPECT_EQ(history.snapshot().tasks.size(), 2U);
    history.add(at(historySeconds + 1, {worker(1, WorkerState::running, "new")}));
    const Snapshot snapshot = history.snapshot();
    ASSERT_EQ(snapshot.tasks.size(), 1U);
    EXPECT_EQ(snapshot.tasks[0].task, "new");
    EXPECT_EQ(snapshot.taskLooks, 3U);
    EXPECT_EQ(snapshot.moments.size(), 3U);
}

TEST(KttopHistory, KeepsABoundedNumberOfSamples)
{
    History history;
    for (int i = 0; i < 10000; ++i) {
        history.add(at(i * 0.01, {worker(1, WorkerState::running, std::to_string(i))}));
    }
    EXPECT_EQ(history.snapshot().moments.size(), 3000U);
    EXPECT_EQ(history.snapshot().tasks.size(), 3000U);
}

std::deque<Moment> moments(const std::vector<int>& running, std::uint64_t first = 0)
{
    std::deque<Moment> made;
    for (const int count : running) {
        Moment moment;
        moment.number = first + made.size();
        moment.atNs = static_cast<std::int64_t>(moment.number) * second;
        moment.counts.workers = 8;
        moment.counts.running = count;
        moment.counts.sleeping = 8 - count;
        made.push_back(moment);
    }
    return made;
}

TEST(KttopSparkline, HasOneColumnASampleWhileThereIsRoom)
{
    const HistoryLine line = historyLine(moments({0, 1, 8}), 3);
    EXPECT_EQ(line.running, (std::vector<double>{0, 1, 8}));
    EXPECT_EQ(line.sleeping, (std::vector<double>{8, 7, 0}));
    EXPECT_DOUBLE_EQ(line.top, 8);
    EXPECT_DOUBLE_EQ(line.seconds, 2);
}

TEST(KttopSparkline, PutsTheSameSamplesTogetherAsTimeGoesOn)
{
    // Eight samples in four columns or less: 1 is with 0, 3 with 2, ..., whichever is the oldest.
    EXPECT_EQ(historyLine(moments({0, 2, 4, 4, 6, 8, 1, 3}), 4).running,
              (std::vector<double>{1, 4, 7, 2}));
    EXPECT_EQ(historyLine(moments({2, 4, 4, 6, 8, 1, 3}, 1), 4).running,
              (std::vector<double>{2, 4, 7, 2}));
    EXPECT_EQ(historyLine(moments({2, 4, 4, 6, 8, 1, 3, 5}, 1), 4).running,
              (std::vector<double>{4, 7, 2, 5}));
}

TEST(KttopSparkline, MakesNothingOfNothing)
{
    EXPECT_TRUE(historyLine({}, 10).running.empty());
    EXPECT_TRUE(historyLine(moments({1}), 0).running.empty());
}

TEST(KttopSparkline, HasTheLowestBlockForZeroOnly)
{
    EXPECT_EQ(sparkline({0, 0.001, 4, 8, 9}, 8, true), "▁▂▅██");
    EXPECT_EQ(sparkline({0, 0.001, 4, 8, 9}, 8, false), "_.=##");
    EXPECT_EQ(sparkline({0, 1}, 0, false), "__");
}

}  // namespace
