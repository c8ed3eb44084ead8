/// What a child of a process with a pool may do.
#include <atomic>
#include <cstdlib>

#include <sys/wait.h>
#include <unistd.h>

#include <ktasync/ktasync.h>

#include "Stress.h"

namespace {

const int roundsOfForks = 20;

/// Forks, has the child end with what `inChild` says, and returns how it ended: 0 for true.
template <typename InChild>
int fork(const InChild& inChild)
{
    const pid_t child = ::fork();
    if (child == 0) {
        alarm(60);
        _exit(inChild() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

/// A pool whose tasks go on queueing tasks, so that its locks are in use at any moment.
class NeverAtRest {
public:
    NeverAtRest()
    {
        pool->init(4, 8, 1, 0, 0);
        for (int i = 0; i < 8; ++i) {
            again();
        }
    }
    ~NeverAtRest()
    {
        goesOn = false;
        EXPECT_TRUE(pool->close(false, 60000));
        EXPECT_EQ(pool.use_count(), 1);
        EXPECT_GT(ran, 0);
    }
    NeverAtRest(const NeverAtRest&) = delete;
    NeverAtRest& operator=(const NeverAtRest&) = delete;

    void again()
    {
        pool->enqueue(makeTask([this] {
            ++ran;
            if (goesOn) {
                again();
            }
        }));
    }

    const Pool pool{new KT::KTThreadPool(4, 8, 1, 0, 0)};
    std::atomic<bool> goesOn{true};
    std::atomic<int> ran{0};
};

bool runsATask()
{
    const Pool pool(new KT::KTThreadPool(2, 4, 0, 0, 0));
    pool->init(2, 4, 0, 0, 0);
    std::atomic<bool> ran(false);
    pool->enqueue(makeTask([&ran] { ran = true; }));
    return wakingUntil(pool, [&ran] { return ran.load(); }) && pool->close(false, 60000);
}

TEST(Fork, ChildOfABusyPoolMayExecOrExit)
{
    const NeverAtRest busy;
    for (int round = 0; round < roundsOfForks; ++round) {
        ASSERT_EQ(fork([] { return true; }), 0);
        ASSERT_EQ(fork([] { return execl("/bin/true", "true", nullptr) == 0; }), 0);
    }
}

TEST(Fork, JoinAndCloseOfAChildReturnFalseAtOnce)
{
    const NeverAtRest busy;
    for (int round = 0; round < roundsOfForks; ++round) {
        ASSERT_EQ(fork([&busy] {
                      return !busy.pool->join() && !busy.pool->close() && !busy.pool->close(true);
                  }),
                  0);
    }
}

TEST(Fork, ScopedPoolDoesNothingInAChild)
{
    KT::KTScopedPool pool;
    KT::submit(pool, [] {}).get();
    EXPECT_EQ(fork([&pool] {
                  KT::KTScopedPool moved(std::move(pool));
                  return !moved.close();
              }),
              0);
    EXPECT_TRUE(pool.close());
}

TEST(Fork, ChildMayRecordATimelineWhileTheParentRecordsOne)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer lets no child of a process with threads make any";
#endif
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "AddressSanitizer's allocator stays locked in a child if a thread was in it";
#endif
    KT::KTScopedPool pool;
    const KT::KTTraceRecorder parents(pool, "/dev/null");
    for (int round = 0; round < roundsOfForks; ++round) {
        ASSERT_EQ(fork([] {
                      KT::KTScopedPool ofChild;
                      KT::KTTraceRecorder childs(ofChild, "/dev/null");
                      KT::submit(ofChild, [] {}).get();
                      childs.flush();
                      return true;
                  }),
                  0);
    }
}

TEST(Fork, ChildMayMakePoolsWhereAllWereClosedBefore)
{
    EXPECT_TRUE(runsATask());
    for (int round = 0; round < roundsOfForks; ++round) {
        ASSERT_EQ(fork(runsATask), 0);
    }
    EXPECT_TRUE(runsATask());
}

TEST(Fork, PoolMadeBeforeAndStartedInTheChildIsTheChilds)
{
    const Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    EXPECT_EQ(fork([&pool] {
                  pool->init(1, 1, 0, 0, 0);
                  return pool->close(false, 60000);
              }),
              0);
    pool->init(1, 1, 0, 0, 0);
    EXPECT_TRUE(pool->close(false, 60000));
}

}  // namespace
