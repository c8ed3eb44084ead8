#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "FakeProc.h"
#include "PageDetails.h"

namespace {

/// Twenty workers, all of which run again and again, and a terminal that shows three of them.
class KttopPageDetails : public testing::Test {
protected:
    KttopPageDetails() { proc.process(10, "busy"); }

    void runAll()
    {
        ++slices;
        for (int tid = 11; tid <= 30; ++tid) {
            FakeThread thread{tid % 2 == 0 ? "KTTask: even-ta" : "KTTask: odd-tas"};
            thread.slices = slices;
            thread.voluntary = 2 * slices;
            proc.thread(10, tid, thread);
        }
    }

    /// Whose details are known after a sample, the files of which say what `runAll` wrote last.
    std::set<int> known(double interval)
    {
        LiveSource source(ProcessReader(proc.root(), 10, 1000), interval);
        History history;
        history.add(source.next(Details::known).value());
        readDetailsOfPage(source, history, state, {80, 10});
        std::set<int> tids;
        for (const Worker& worker : history.snapshot().workers) {
            if (worker.reading.hasDetails) {
                tids.insert(worker.reading.tid);
                EXPECT_EQ(worker.reading.voluntary, 2 * slices);
            }
        }
        return tids;
    }

    static std::set<int> from(int first, int last)
    {
        std::set<int> tids;
        for (int tid = first; tid <= last; ++tid) {
            tids.insert(tid);
        }
        return tids;
    }

    FakeProc proc;
    std::uint64_t slices = 3;
    ViewState state;
};

TEST_F(KttopPageDetails, AreThoseOfTheRowsOnThePage)
{
    runAll();
    EXPECT_EQ(known(0.001), from(11, 13));
    state.first = 5;
    EXPECT_EQ(known(0.001), from(16, 18));
    state.sorting.reverse = true;
    EXPECT_EQ(known(0.001), from(16, 18));  // equals are by number, either way round
    state.sorting = {Column::tid, true};
    EXPECT_EQ(known(0.001), from(23, 25));
    state.first = 1000;  // there is no room wasted at the end
    EXPECT_EQ(known(0.001), from(11, 13));
    state = ViewState();
    state.filter = "even";
    EXPECT_EQ(known(0.001), (std::set<int>{12, 14, 16}));
    state.filter = "none";
    EXPECT_EQ(known(0.001), std::set<int>());
}

TEST_F(KttopPageDetails, AreThoseOfSomeRowsBeyondItToo)
{
    runAll();
    EXPECT_EQ(known(0.1), from(11, 18));
    state.first = 14;
    EXPECT_EQ(known(0.1), (std::set<int>{11, 12, 25, 26, 27, 28, 29, 30}));
}

TEST_F(KttopPageDetails, AreAllWhereSamplesAreFarApart)
{
    runAll();
    EXPECT_EQ(known(1), from(11, 30));
}

TEST_F(KttopPageDetails, GoOnWhereARowComesBackOntoThePage)
{
    LiveSource source(ProcessReader(proc.root(), 10, 1000), 0.001);
    History history;
    const auto look = [&] {
        runAll();
        history.add(source.next(Details::known).value());
        readDetailsOfPage(source, history, state, {80, 10});
        return history.snapshot().workers;
    };
    EXPECT_FALSE(look()[0].hasSwitchRates);
    EXPECT_TRUE(look()[0].hasSwitchRates);
    state.first = 17;
    std::vector<Worker> workers = look();
    EXPECT_FALSE(workers[0].reading.hasDetails);
    EXPECT_FALSE(workers[0].hasSwitchRates);
    EXPECT_TRUE(workers[0].hasRates);
    EXPECT_TRUE(workers[19].reading.hasDetails);
    EXPECT_FALSE(workers[19].hasSwitchRates);
    state.first = 0;
    workers = look();
    EXPECT_TRUE(workers[0].hasSwitchRates);
    EXPECT_GT(workers[0].voluntaryRate, 0);
}

}  // namespace
