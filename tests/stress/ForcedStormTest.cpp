/// Forced shutdowns at random moments, while tasks do all that tasks may do.
#include <atomic>
#include <iostream>
#include <string>
#include <vector>

#include <kterror/KTError.h>
#include <ro/log.h>

#include "Capture.h"
#include "Stress.h"

namespace {

/// What all the tasks of a round share.
struct Surroundings {
    Pool pool;
    boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
    boost::shared_ptr<KT::KTMutexRW> lock = KT::KTMutexRW::createKTMutexRW();
    boost::shared_ptr<KT::KTCondition> never = KT::KTCondition::createKTCondition();
    std::atomic<int> alive{0};  ///< objects on the tasks' stacks
    std::atomic<int> destroyedTwice{0};
};

class OnTheStack {
public:
    explicit OnTheStack(Surroundings& all) : around(all) { ++around.alive; }
    ~OnTheStack()
    {
        around.destroyedTwice += isDestroyed;
        isDestroyed = true;
        --around.alive;
    }
    OnTheStack(const OnTheStack&) = delete;
    OnTheStack& operator=(const OnTheStack&) = delete;

private:
    Surroundings& around;
    bool isDestroyed = false;
};

void sleepALittle(Surroundings& around)
{
    const boost::shared_ptr<KT::KTMutex> own = KT::KTMutex::createKTMutex();
    const KT::KTCriticalSection hold(own);
    around.never->waitFor(own, 2);
}

void compute(Surroundings&)
{
    volatile unsigned sum = 0;
    for (unsigned i = 0; i < 20000; ++i) {
        sum = sum + i;
    }
}

void logALine(Surroundings&)
{
    ro::log::LogStream(6, "storm", "", "logALine", 0) << "a line" << std::endl;
}

/// As the documents tell a task to print.
void print(Surroundings&)
{
    int previous = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
    std::cout << "a line\n" << std::flush;
    pthread_setcancelstate(previous, nullptr);
}

void fail(Surroundings&)
{
    throw KT::KTError("storm", "fail", "on purpose", "ForcedStormTest.cpp", 1);
}

void allocate(Surroundings&)
{
    std::vector<std::string> strings;
    for (std::size_t i = 0; i < 50; ++i) {
        strings.emplace_back(i * 10, 'x');
    }
}

void holdTheMutex(Surroundings& around)
{
    const KT::KTCriticalSection hold(around.mutex);
    around.never->waitFor(around.mutex, 1);
}

void holdTheLock(Surroundings& around)
{
    {
        const KT::KTCriticalSectionRead hold(around.lock);
        sleepALittle(around);
    }
    const KT::KTCriticalSectionWrite hold(around.lock);
    sleepALittle(around);
}

void enqueueMore(Surroundings& around)
{
    around.pool->enqueue(makeTask([&around] { compute(around); }));
}

void resize(Surroundings& around)
{
    around.pool->adjustThread(1);
    around.pool->adjustThread(-3);
    around.pool->status();
}

using Body = void (*)(Surroundings&);
const std::vector<Body> bodies = {sleepALittle, compute,      logALine,    print,       fail,
                                  allocate,     holdTheMutex, holdTheLock, enqueueMore, resize};

void storm(Dice& dice)
{
    Surroundings around;
    const int workers = 1 + dice.roll(4);
    around.pool.reset(new KT::KTThreadPool(workers, 8, 1, 0, 0));
    around.pool->init(workers, 8, 1, 0, 0);
    for (int i = dice.roll(24); i >= 0; --i) {
        const Body body =
            bodies[static_cast<std::size_t>(dice.roll(static_cast<int>(bodies.size())))];
        around.pool->enqueue(makeTask([&around, body] {
            const OnTheStack object(around);
            body(around);
        }));
    }
    const auto moment =
        std::chrono::steady_clock::now() + std::chrono::microseconds(dice.roll(3000));
    while (std::chrono::steady_clock::now() < moment) {
    }
    ASSERT_TRUE(around.pool->close(true, 60000));
    ASSERT_EQ(around.alive, 0);
    ASSERT_EQ(around.destroyedTwice, 0);
    bool isLocked = true;
    const KT::KTCriticalTrueIfLocked hold(around.mutex, isLocked);
    ASSERT_FALSE(isLocked);
    const KT::KTCriticalSectionWrite holdToo(around.lock);
    ASSERT_TRUE(std::cout.good());
}

TEST(ForcedStorm, AtAnyMomentLeavesNothingBehind)
{
    const QuietConsole quiet;
    const LogCapture failures("KTThread");
    const LogCapture lines("storm");
    Dice dice;
    const int rounds = scaled(300);
    for (int round = 0; round < rounds && !HasFatalFailure(); ++round) {
        storm(dice);
    }
    const std::size_t before = lines.records().size();
    ro::log::LogStream(6, "storm", "", "after", 0) << "still there" << std::endl;
    EXPECT_EQ(lines.records().size(), before + 1);
}

}  // namespace
