#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <ktthread/KTConditionManager.h>
#include <ktthread/KTCriticalSection.h>

#include "Inside.h"
#include "Platform.h"
#include "Waiting.h"

namespace {

using platform::Call;

static_assert(std::has_virtual_destructor<KT::KTConditionManager>::value, "may be derived from");

class ConditionManager : public testing::Test {
protected:
    /// Starts a thread that waits on `name` once, and returns when it is in the wait.
    void startWaiter(const std::string& name)
    {
        const inside::Event event = inside::events(*manager).at(name);
        const void* const condition = inside::condition(*event.first).get();
        const std::size_t before = recorder.count(Call::wait, condition);
        waiters.start([this, name] {
            manager->waitForCondition(name);
            ++woken;
        });
        ASSERT_TRUE(
            eventually([&] { return recorder.count(Call::wait, condition) == before + 1; }));
        const KT::KTCriticalSection inTheWaitNow(event.second);
    }

    /// Of the event's own condition: threads of earlier tests may still broadcast as they end.
    std::size_t broadcasts(const std::string& name)
    {
        const inside::Event event = inside::events(*manager).at(name);
        return recorder.count(Call::broadcast, inside::condition(*event.first).get());
    }

    platform::Recorder recorder;
    std::unique_ptr<KT::KTConditionManager> manager = std::make_unique<KT::KTConditionManager>();
    std::atomic<int> woken{0};
    Threads waiters;
};

TEST_F(ConditionManager, WaitOnAnUnknownNameReturnsAtOnce)
{
    manager->waitForCondition("unknown");
    EXPECT_EQ(recorder.count(Call::wait), 0U);
    EXPECT_TRUE(inside::events(*manager).empty());
}

TEST_F(ConditionManager, TriggerOfAnUnknownNameDoesNothing)
{
    manager->triggerCondition("unknown");
    EXPECT_EQ(recorder.count(Call::broadcast), 0U);
    EXPECT_TRUE(inside::events(*manager).empty());
    manager->waitForCondition("unknown");
    EXPECT_EQ(recorder.count(Call::wait), 0U);
}

TEST_F(ConditionManager, EmptyNameIsIgnored)
{
    manager->addCondition("");
    EXPECT_TRUE(inside::events(*manager).empty());
    manager->waitForCondition("");
    manager->triggerCondition("");
    EXPECT_EQ(recorder.count(Call::wait), 0U);
}

TEST_F(ConditionManager, TriggerWakesAllWaitersByOneBroadcast)
{
    manager->addCondition("ready");
    for (int i = 0; i < 3; ++i) {
        startWaiter("ready");
    }
    EXPECT_EQ(woken, 0);
    manager->triggerCondition("ready");
    waiters.joinAll();
    EXPECT_EQ(woken, 3);
    EXPECT_EQ(broadcasts("ready"), 1U);
}

TEST_F(ConditionManager, TriggerDoesNotTakeTheMutex)
{
    manager->addCondition("ready");
    const KT::KTCriticalSection hold(inside::events(*manager).at("ready").second);
    manager->triggerCondition("ready");
    EXPECT_EQ(broadcasts("ready"), 1U);
}

TEST_F(ConditionManager, NamesMatchExactly)
{
    manager->addCondition("ready");
    startWaiter("ready");
    manager->triggerCondition("Ready");
    manager->triggerCondition("ready ");
    EXPECT_EQ(broadcasts("ready"), 0U);
    manager->triggerCondition("ready");
    waiters.joinAll();
    EXPECT_EQ(woken, 1);
}

TEST_F(ConditionManager, TriggerIsNotRemembered)
{
    manager->addCondition("ready");
    manager->triggerCondition("ready");
    startWaiter("ready");
    EXPECT_EQ(woken, 0);
    manager->triggerCondition("ready");
    waiters.joinAll();
    EXPECT_EQ(woken, 1);
}

TEST_F(ConditionManager, AddingANameAgainReplacesItsObjects)
{
    manager->addCondition("ready");
    const inside::Event first = inside::events(*manager).at("ready");
    manager->addCondition("ready");
    const inside::Event second = inside::events(*manager).at("ready");
    EXPECT_EQ(inside::events(*manager).size(), 1U);
    EXPECT_NE(first.first, second.first);
    EXPECT_NE(first.second, second.second);
}

TEST_F(ConditionManager, AddingANameAgainReleasesItsWaiters)
{
    manager->addCondition("ready");
    startWaiter("ready");
    startWaiter("ready");
    manager->addCondition("ready");
    waiters.joinAll();
    EXPECT_EQ(woken, 2);
}

TEST_F(ConditionManager, DestructionReleasesTheWaitersOfEveryName)
{
    manager->addCondition("one");
    manager->addCondition("two");
    startWaiter("one");
    startWaiter("two");
    manager.reset();
    waiters.joinAll();
    EXPECT_EQ(woken, 2);
}

}  // namespace
