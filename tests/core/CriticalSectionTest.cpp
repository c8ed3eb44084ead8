#include <atomic>
#include <thread>
#include <type_traits>

#include <boost/weak_ptr.hpp>

#include <gtest/gtest.h>

#include <ktthread/KTCriticalSection.h>

#include "Waiting.h"

namespace {

static_assert(!std::is_copy_constructible<KT::KTCriticalSection>::value, "never copied");
static_assert(!std::is_copy_constructible<KT::KTCriticalSectionRead>::value, "never copied");
static_assert(!std::is_copy_constructible<KT::KTCriticalSectionWrite>::value, "never copied");
static_assert(!std::is_copy_constructible<KT::KTCriticalTrueIfLocked>::value, "never copied");

/// Whether somebody holds `mutex`, seen from another thread.
bool isLocked(const boost::shared_ptr<KT::KTMutex>& mutex)
{
    bool busy = false;
    std::thread([&] { const KT::KTCriticalTrueIfLocked attempt(mutex, busy); }).join();
    return busy;
}

/// Holds a lock, on a thread of its own, until it is destroyed.
template <typename Guard, typename Lock>
class Holder {
public:
    explicit Holder(boost::shared_ptr<Lock> lock)
        : thread([this, lock] {
              const Guard hold(lock);
              held = true;
              letGo.pass();
          })
    {
    }
    ~Holder()
    {
        letGo.open();
        thread.join();
    }
    bool untilHeld()
    {
        return eventually([this] { return held.load(); });
    }

    std::atomic<bool> held{false};

private:
    Gate letGo;
    std::thread thread;
};

using MutexHolder = Holder<KT::KTCriticalSection, KT::KTMutex>;
using ReadHolder = Holder<KT::KTCriticalSectionRead, KT::KTMutexRW>;
using WriteHolder = Holder<KT::KTCriticalSectionWrite, KT::KTMutexRW>;

TEST(CriticalSection, HoldsForItsScope)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    {
        const KT::KTCriticalSection hold(mutex);
        EXPECT_TRUE(isLocked(mutex));
    }
    EXPECT_FALSE(isLocked(mutex));
}

TEST(CriticalSection, BlocksUntilTheOtherThreadUnlocks)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    mutex->lock();
    MutexHolder other(mutex);
    EXPECT_TRUE(isLocked(mutex));
    EXPECT_FALSE(other.held);
    mutex->unlock();
    EXPECT_TRUE(other.untilHeld());
}

TEST(CriticalSection, ReleasesWhenAnExceptionLeavesTheScope)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    EXPECT_THROW(
        {
            const KT::KTCriticalSection hold(mutex);
            throw 1;
        },
        int);
    EXPECT_FALSE(isLocked(mutex));
}

TEST(CriticalSection, ForcedUnlockAndDestructionUnlockOnce)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    boost::shared_ptr<MutexHolder> other;
    {
        KT::KTCriticalSection hold(mutex);
        hold.forceUnlockNow();
        EXPECT_FALSE(isLocked(mutex));
        other.reset(new MutexHolder(mutex));
        ASSERT_TRUE(other->untilHeld());
    }
    EXPECT_TRUE(isLocked(mutex)) << "the destructor took the mutex from its next owner";
}

TEST(CriticalSection, KeepsItsMutexAliveUntilForcedToUnlock)
{
    auto mutex = KT::KTMutex::createKTMutex();
    const boost::weak_ptr<KT::KTMutex> watched(mutex);
    KT::KTCriticalSection hold(mutex);
    mutex.reset();
    EXPECT_FALSE(watched.expired());
    hold.forceUnlockNow();
    EXPECT_TRUE(watched.expired());
}

TEST(CriticalSectionRead, SharesAndKeepsWritersOut)
{
    const auto lock = KT::KTMutexRW::createKTMutexRW();
    boost::shared_ptr<ReadHolder> first(new ReadHolder(lock));
    boost::shared_ptr<ReadHolder> second(new ReadHolder(lock));
    ASSERT_TRUE(first->untilHeld());
    ASSERT_TRUE(second->untilHeld());
    WriteHolder writer(lock);
    first.reset();
    EXPECT_FALSE(writer.held);
    second.reset();
    EXPECT_TRUE(writer.untilHeld());
}

template <typename Second>
void expectKeptOutByAWriter()
{
    const auto lock = KT::KTMutexRW::createKTMutexRW();
    boost::shared_ptr<WriteHolder> first(new WriteHolder(lock));
    ASSERT_TRUE(first->untilHeld());
    Second second(lock);
    EXPECT_FALSE(second.held);
    first.reset();
    EXPECT_TRUE(second.untilHeld());
}

TEST(CriticalSectionWrite, KeepsReadersOut)
{
    expectKeptOutByAWriter<ReadHolder>();
}

TEST(CriticalSectionWrite, KeepsWritersOut)
{
    expectKeptOutByAWriter<WriteHolder>();
}

TEST(CriticalSectionReadWrite, KeepTheirLockAlive)
{
    auto lock = KT::KTMutexRW::createKTMutexRW();
    const boost::weak_ptr<KT::KTMutexRW> watched(lock);
    {
        const KT::KTCriticalSectionRead hold(lock);
        lock.reset();
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
    lock = KT::KTMutexRW::createKTMutexRW();
    const KT::KTCriticalSectionWrite hold(lock);
    const boost::weak_ptr<KT::KTMutexRW> watchedToo(lock);
    lock.reset();
    EXPECT_FALSE(watchedToo.expired());
}

TEST(CriticalTrueIfLocked, TakesAFreeMutexForItsScope)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    {
        bool busy = true;
        const KT::KTCriticalTrueIfLocked attempt(mutex, busy);
        EXPECT_FALSE(busy);
        EXPECT_TRUE(isLocked(mutex));
    }
    EXPECT_FALSE(isLocked(mutex));
}

TEST(CriticalTrueIfLocked, LeavesABusyMutexAlone)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    MutexHolder other(mutex);
    ASSERT_TRUE(other.untilHeld());
    {
        bool busy = false;
        const KT::KTCriticalTrueIfLocked attempt(mutex, busy);
        EXPECT_TRUE(busy);
    }
    EXPECT_TRUE(isLocked(mutex));
}

TEST(CriticalTrueIfLocked, ForcedUnlockReleasesOnce)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    boost::shared_ptr<MutexHolder> other;
    {
        bool busy = true;
        KT::KTCriticalTrueIfLocked attempt(mutex, busy);
        attempt.forceUnlockNow();
        EXPECT_FALSE(isLocked(mutex));
        other.reset(new MutexHolder(mutex));
        ASSERT_TRUE(other->untilHeld());
    }
    EXPECT_TRUE(isLocked(mutex));
}

TEST(CriticalTrueIfLocked, DoesNotKeepTheMutexAlive)
{
    auto mutex = KT::KTMutex::createKTMutex();
    const boost::weak_ptr<KT::KTMutex> watched(mutex);
    bool busy = true;
    KT::KTCriticalTrueIfLocked attempt(mutex, busy);
    attempt.forceUnlockNow();
    mutex.reset();
    EXPECT_TRUE(watched.expired());
}

}  // namespace
