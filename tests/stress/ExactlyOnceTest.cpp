/// That a pool that grows and shrinks all the while runs each task once, and loses none.
#include <atomic>
#include <vector>

#include "Stress.h"

namespace {

using Counts = std::vector<std::atomic<unsigned char>>;

class Counting : public KT::KTTask {
public:
    Counting(Counts& allCounts, std::size_t own, std::atomic<int>& allEnded)
        : counts(allCounts), number(own), ended(allEnded)
    {
    }
    void run() override
    {
        ++counts[number];
        ++ended;
    }

private:
    Counts& counts;
    const std::size_t number;
    std::atomic<int>& ended;
};

/// Shrinks and grows the pool until `stop` is set.
void resize(const Pool& pool, const std::atomic<bool>& stop)
{
    Dice dice;
    while (!stop) {
        if (dice.roll(2) == 0) {
            pool->adjustThread(-dice.roll(64));
        } else {
            pool->xIncreaseThread();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(dice.roll(2000)));
    }
}

void runTasks(int tasks)
{
    const int producers = 4;
    Counts counts(static_cast<std::size_t>(tasks));
    std::atomic<int> ended(0);
    std::atomic<bool> stop(false);
    const Pool pool(new KT::KTThreadPool(2, 64, 10, 0, 0));
    pool->init(2, 64, 10, 0, 0);
    Threads resizer;
    resizer.start([&] { resize(pool, stop); });
    {
        Threads threads;
        for (int producer = 0; producer < producers; ++producer) {
            threads.start([&, producer] {
                for (int i = producer; i < tasks; i += producers) {
                    ASSERT_TRUE(pool->enqueue(boost::shared_ptr<KT::KTTask>(
                        new Counting(counts, static_cast<std::size_t>(i), ended))));
                }
            });
        }
    }
    EXPECT_TRUE(wakingUntil(pool, [&] { return ended == tasks; })) << tasks - ended << " lost";
    stop = true;
    resizer.joinAll();
    EXPECT_TRUE(pool->close(false, 600000));
    int wrong = 0;
    for (const std::atomic<unsigned char>& count : counts) {
        wrong += count != 1;
    }
    EXPECT_EQ(wrong, 0);
}

TEST(ExactlyOnce, WhilePoolsGrowAndShrink)
{
    const QuietConsole quiet;
    runTasks(1000);  // what is allocated once for all
    const std::size_t before = bytesInUse();
#if defined(__SANITIZE_THREAD__)
    // ThreadSanitizer makes locks that 64 workers meet at twenty times as slow: the watchdog would
    // bark on a busy machine.
    const int tasks = 20000;
#else
    const int tasks = 100000;
#endif
    runTasks(scaled(tasks));
    EXPECT_LE(bytesInUse(), before + 64 * 1024) << "bytes in use";
}

TEST(ExactlyOnce, InTheOrderOfArrivalForOneProducerAndOneWorker)
{
    const int tasks = scaled(20000);
    const Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(1, 1, 0, 0, 0);
    std::atomic<int> next(0);
    int misplaced = 0;
    for (int i = 0; i < tasks; ++i) {
        pool->enqueue(makeTask([&next, &misplaced, i] { misplaced += next++ != i; }));
    }
    EXPECT_TRUE(wakingUntil(pool, [&] { return next == tasks; }));
    EXPECT_TRUE(pool->close(false, 60000));
    EXPECT_EQ(misplaced, 0);
}

}  // namespace
