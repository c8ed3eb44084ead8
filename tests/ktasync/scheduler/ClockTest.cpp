#include <atomic>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Capture.h"
#include "Waiting.h"
#include "clock/Clock.h"

namespace {

using KT::detail::Clock;
using KT::detail::Time;
using namespace std::chrono_literals;

struct Counted : KT::detail::Watched {
    Time::time_point look(Time::time_point now) override
    {
        ++looks;
        return looks < wanted ? now + 1ms : never;
    }
    void tasksQueued() override {}
    void dropQueued() override {}
    void amend(KT::KTThreadPoolStatus& /*status*/) const override {}

    std::atomic<int> looks{0};
    std::atomic<int> wanted{1};
};

boost::intrusive_ptr<Counted> made(int wanted)
{
    boost::intrusive_ptr<Counted> counted(new Counted);
    counted->wanted = wanted;
    return counted;
}

TEST(Clock, LooksAsOftenAsItIsAskedTo)
{
    const auto often = made(5);
    const auto once = made(1);
    Clock::instance().watch(*often, 1ms);
    Clock::instance().watch(*once, 1ms);
    EXPECT_TRUE(eventually([&] { return often->looks == 5 && once->looks == 1; }));
    Clock::instance().watch(*once, 0ms);
    EXPECT_TRUE(eventually([&] { return once->looks == 2; }));
    EXPECT_EQ(often->looks, 5);
}

TEST(Clock, ALookMayComeSooner)
{
    const auto counted = made(1);
    Clock::instance().watch(*counted, 10h);
    EXPECT_EQ(counted->looks, 0);
    Clock::instance().watch(*counted, 1ms);
    EXPECT_TRUE(eventually([&] { return counted->looks == 1; }));
}

TEST(Clock, LetsGoOfWhatItLooksAtNoMore)
{
    const auto counted = made(2);
    Clock::instance().watch(*counted, 1ms);
    EXPECT_TRUE(eventually([&] { return counted->use_count() == 1; }));
    EXPECT_EQ(counted->looks, 2);
}

TEST(Clock, RunsInAForkedChildOnceItIsNeededThere)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer lets no child of a process with threads make any";
#endif
    const auto before = made(1);
    Clock::instance().watch(*before, 10h);
    const pid_t child = fork();
    if (child == 0) {
        const auto counted = made(3);
        Clock::instance().watch(*counted, 1ms);
        _exit(eventually([&] { return counted->looks == 3; }) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    Clock::instance().watch(*before, 0ms);
    EXPECT_TRUE(eventually([&] { return before->looks == 1; }));
}

}  // namespace
