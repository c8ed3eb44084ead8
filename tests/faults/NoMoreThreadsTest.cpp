/// What happens when the system makes no more threads.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include <dirent.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kterror/KTError.h>

#include "Capture.h"
#include "Stress.h"

namespace {

using platform::Call;
using platform::Failure;

/// Makes the n-th attempt to create a thread fail if `when(n)`, and checks that each failure is
/// logged once.
class FailingCreation {
public:
    explicit FailingCreation(const std::function<bool(int)>& when)
        : failure(Call::create, EAGAIN, [this, when](int attempt) {
              const bool fails = when(attempt);
              count += fails;
              return fails;
          })
    {
    }
    ~FailingCreation() { EXPECT_EQ(records.records().size(), static_cast<std::size_t>(count)); }
    FailingCreation(const FailingCreation&) = delete;
    FailingCreation& operator=(const FailingCreation&) = delete;

    int failures() const { return count; }

private:
    const LogCapture records{"core.thread"};
    std::atomic<int> count{0};
    const Failure failure;
};

/// Queues tasks and counts which of them were accepted and have run.
class Tasks {
public:
    explicit Tasks(const Pool& usedPool) : pool(usedPool) {}

    void enqueue(int tasks)
    {
        for (int i = 0; i < tasks; ++i) {
            const bool isQueued = pool->enqueue(makeTask([this] { ++ran; }));
            accepted += isQueued;
        }
    }
    bool allRun()
    {
        return wakingUntil(pool, [this] { return ran >= accepted; }) && ran == accepted;
    }

    int accepted = 0;

private:
    const Pool& pool;
    std::atomic<int> ran{0};
};

TEST(NoMoreThreads, AtAllLetsInitThrowAndThePoolCanBeClosed)
{
    const FailingCreation none([](int) { return true; });
    const Pool pool(new KT::KTThreadPool(3, 8, 0, 0, 0));
    EXPECT_THROW(pool->init(3, 8, 0, 0, 0), KT::KTError);
    EXPECT_EQ(none.failures(), 1);
    EXPECT_TRUE(pool->close(false, 60000));
    EXPECT_EQ(pool.use_count(), 1);
    EXPECT_FALSE(pool->enqueue(makeTask()));
}

TEST(NoMoreThreads, FromTheNthOnLetsInitThrowAndTheOthersEnd)
{
    for (int n = 1; n <= 4; ++n) {
        const FailingCreation few([n](int attempt) { return attempt >= n; });
        const Pool pool(new KT::KTThreadPool(4, 8, 0, 0, 0));
        EXPECT_THROW(pool->init(4, 8, 0, 0, 0), KT::KTError);
        EXPECT_EQ(few.failures(), 1);
        EXPECT_TRUE(pool->close(n % 2 == 0, 60000));
        EXPECT_EQ(pool.use_count(), 1);
    }
}

TEST(NoMoreThreads, LeavesAPoolWithTheWorkersThatItHas)
{
    const Pool pool(new KT::KTThreadPool(1, 30, 1, 0, 0));
    pool->init(1, 30, 1, 0, 0);
    Tasks tasks(pool);
    {
        const FailingCreation none([](int) { return true; });
        EXPECT_FALSE(pool->adjustThread(3));
        EXPECT_EQ(none.failures(), 1);
        EXPECT_TRUE(pool->xIncreaseThread());
        EXPECT_EQ(none.failures(), 31);
        tasks.enqueue(200);
        EXPECT_EQ(tasks.accepted, 200);
        EXPECT_TRUE(tasks.allRun());
        EXPECT_EQ(pool->status().threads, 1);
    }
    EXPECT_TRUE(pool->adjustThread(3));
    EXPECT_EQ(pool->status().threads, 4);
    EXPECT_TRUE(pool->close(false, 60000));
    EXPECT_EQ(pool.use_count(), 1);
}

TEST(NoMoreThreads, DoesNotKeepWorkersFromRetiring)
{
    const QuietConsole quiet;
    const Pool pool(new KT::KTThreadPool(25, 40, 0, 0, 0));
    pool->init(25, 40, 0, 0, 0);
    const FailingCreation none([](int) { return true; });
    EXPECT_TRUE(pool->adjustThread(-10));
    EXPECT_TRUE(wakingUntil(pool, [&pool] {
        inside::wakeCondition(pool)->signal();
        return pool->status().threads == 15;
    }));
    EXPECT_FALSE(pool->adjustThread(1));
    EXPECT_TRUE(pool->close(false, 60000));
}

TEST(NoMoreThreads, AtRandomLosesNoTaskAndRunsNoneTwice)
{
    const QuietConsole quiet;
    Dice dice;
    const int rounds = scaled(50);
    for (int round = 0; round < rounds; ++round) {
        Dice attempts(static_cast<unsigned>(dice.roll(1000000)));
        const FailingCreation some([&attempts](int) { return attempts.roll(2) == 0; });
        const Pool pool(new KT::KTThreadPool(1, 40, 1, 0, 0));
        try {
            pool->init(1, 40, 1, 0, 0);
        } catch (const KT::KTError&) {
            EXPECT_TRUE(pool->close(false, 60000));
            continue;
        }
        Tasks tasks(pool);
        for (int step = 0; step < 10; ++step) {
            tasks.enqueue(10);
            if (dice.roll(3) == 0) {
                pool->xIncreaseThread();
            } else {
                pool->adjustThread(dice.roll(30) - 20);
            }
        }
        EXPECT_TRUE(tasks.allRun());
        EXPECT_TRUE(pool->close(dice.roll(2) == 0, 60000));
        ASSERT_EQ(pool.use_count(), 1);
    }
}

/// Threads of all processes of this process's user.
rlim_t threadsOfUser()
{
    rlim_t count = 0;
    DIR* const processes = opendir("/proc");
    while (const dirent* const process = readdir(processes)) {
        const std::string tasks = std::string("/proc/") + process->d_name + "/task";
        struct stat status {};
        if (stat(tasks.c_str(), &status) == 0 && status.st_uid == getuid()) {
            count += status.st_nlink - 2;  // a folder for each thread
        }
    }
    closedir(processes);
    return count;
}

/// Becomes an ordinary user who may start `more` further threads.
void limitThreads(rlim_t more)
{
    const uid_t nobody = 65534;
    if (getuid() == 0 &&
        (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0)) {
        std::_Exit(2);
    }
    const rlim_t most = threadsOfUser() + more;
    const rlimit limit = {most, most};
    if (setrlimit(RLIMIT_NPROC, &limit) != 0) {
        std::_Exit(3);
    }
}

/// Runs a pool that requests far more threads than it can get. Whether it did what it must.
bool outgrowsTheSystem()
{
    limitThreads(8);
    const LogCapture records("core.thread");
    const Pool pool(new KT::KTThreadPool(1, 64, 1, 0, 0));
    pool->init(1, 64, 1, 0, 0);
    const bool hasFailed = !pool->adjustThread(63) && records.records().size() == 1;
    Tasks tasks(pool);
    tasks.enqueue(500);
    const int workers = pool->status().threads;
    const bool hasRun = tasks.accepted == 500 && tasks.allRun();
    const bool isClosed = pool->close(false, 60000);
    const Pool other(new KT::KTThreadPool(64, 64, 1, 0, 0));
    bool hasThrown = false;
    try {
        other->init(64, 64, 1, 0, 0);
    } catch (const KT::KTError&) {
        hasThrown = true;
    }
    return hasFailed && workers > 1 && workers < 64 && hasRun && isClosed && hasThrown &&
           other->close(false, 60000);
}

TEST(NoMoreThreadsDeathTest, OfAnOrdinaryUserAreMissedAsIfTheCallHadFailed)
{
    EXPECT_EXIT(std::_Exit(outgrowsTheSystem() ? 0 : 1), testing::ExitedWithCode(0), "");
}

}  // namespace
