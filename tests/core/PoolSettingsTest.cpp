/// What the owner of a pool may set: the stack of its workers, its name, where its lines go.
#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <spdlog/spdlog.h>

#include <kterror/KTError.h>

#include "Capture.h"
#include "Platform.h"
#include "Pools.h"

namespace {

using platform::Call;
using testing::ElementsAre;
using testing::HasSubstr;
using Messages = KT::KTThreadPool::Messages;

/// What the KTError says that `call` throws; empty if it throws none.
template <typename Call>
std::string errorOf(const Call& call)
{
    try {
        call();
    } catch (const KT::KTError& error) {
        return error.toString();
    }
    return "";
}

class PoolStackSize : public PoolFixture {
protected:
    void TearDown() override
    {
        KT::KTThread::setStackSize(0);
        PoolFixture::TearDown();
    }

    /// The sizes that the launches of `start` request.
    template <typename Start>
    static std::vector<long> requested(const Start& start)
    {
        const platform::Recorder recorder;
        start();
        std::vector<long> sizes;
        long latest = -1;
        for (const platform::Record& record : recorder.records()) {
            if (record.call == Call::stackSize) {
                latest = record.value;
            } else if (record.call == Call::inheritSched) {
                sizes.push_back(latest);  // and not what a sanitizer makes of it afterwards
            }
        }
        return sizes;
    }
};

TEST_F(PoolStackSize, HoldsForTheWorkersOfThatPool)
{
    const Pool pool = made(2, 3);
    pool->setStackSize(1 << 20);
    EXPECT_THAT(requested([&] { pool->init(2, 3, 0, 0, 0); }), ElementsAre(1 << 20, 1 << 20));
    EXPECT_THAT(requested([&] { pool->adjustThread(1); }), ElementsAre(1 << 20));
    EXPECT_THAT(requested([&] { fixed(1); }), ElementsAre(655360));
}

TEST_F(PoolStackSize, HoldsWhateverTheProcessWideOneIs)
{
    KT::KTThread::setStackSize(1 << 18);
    const Pool pool = made(1, 1);
    pool->setStackSize(1 << 20);
    EXPECT_THAT(requested([&] { pool->init(1, 1, 0, 0, 0); }), ElementsAre(1 << 20));
    EXPECT_THAT(requested([&] { fixed(1); }), ElementsAre(1 << 18));
}

TEST_F(PoolStackSize, OfZeroIsThePlatforms)
{
    const Pool pool = made(1, 1);
    pool->setStackSize(0);
    // Which the platform refuses: it keeps its own.
    EXPECT_THAT(requested([&] { pool->init(1, 1, 0, 0, 0); }), ElementsAre(0));
}

TEST_F(PoolStackSize, ThatThePlatformRefusesIsRefused)
{
    const Pool pool = made(1, 1);
    for (const std::size_t size : {std::size_t(1), std::size_t(4096), std::size_t(SIZE_MAX)}) {
        EXPECT_THAT(errorOf([&] { pool->setStackSize(size); }),
                    HasSubstr("setStackSize: stackSize is " + std::to_string(size) + ":"));
    }
    EXPECT_THAT(requested([&] { pool->init(1, 1, 0, 0, 0); }), ElementsAre(655360));
}

class PoolName : public PoolFixture {};

TEST_F(PoolName, IsEmptyUntilItIsSet)
{
    const Pool pool = made(1, 1);
    EXPECT_STREQ(pool->name(), "");
    EXPECT_STREQ(pool->status().name, "");
    pool->setName("render");
    EXPECT_STREQ(pool->name(), "render");
    EXPECT_STREQ(pool->status().name, "render");
    pool->setName("");
    EXPECT_STREQ(pool->name(), "");
}

TEST_F(PoolName, HasUpTo31PrintableCharacters)
{
    const Pool pool = made(1, 1);
    const std::string longest = " !\"#$%&'()*+,-./:;<=>?@[\\]^_`{~";
    ASSERT_EQ(longest.size(), 31U);
    pool->setName(longest);
    EXPECT_EQ(pool->status().name, longest);
    EXPECT_THAT(errorOf([&] { pool->setName(longest + "x"); }),
                HasSubstr("setName: name is 32 bytes long: it must be at most 31"));
    EXPECT_THAT(errorOf([&] { pool->setName("a\nb"); }),
                HasSubstr("name is no printable ASCII: it has the byte 0x0a at position 1"));
    EXPECT_THAT(errorOf([&] { pool->setName("\x7f"); }), HasSubstr("0x7f at position 0"));
    EXPECT_THAT(errorOf([&] { pool->setName(std::string("a\0", 2)); }), HasSubstr("0x00"));
    EXPECT_THAT(errorOf([&] { pool->setName("caf\xc3\xa9"); }), HasSubstr("0xc3 at position 3"));
    EXPECT_EQ(pool->name(), longest);
}

TEST_F(PoolName, StaysOnceThePoolRuns)
{
    const Pool pool = fixed(1);
    EXPECT_THAT(errorOf([&] { pool->setName("late"); }), HasSubstr("before init"));
    EXPECT_STREQ(pool->name(), "");
}

TEST_F(PoolName, BeginsItsRecords)
{
    const LogCapture launches("core.thread");
    const LogCapture errors("KTThread");
    const Pool pool = made(1, 2);
    pool->setName("render");
    pool->init(1, 2, 0, 0, 0);
    {
        const platform::Failure failing(Call::create, EAGAIN);
        EXPECT_FALSE(pool->adjustThread(1));
    }
    const auto task = makeTask([] { throw KT::KTError("module", "method", "why", "file", 1); });
    EXPECT_TRUE(pool->enqueue(task));
    EXPECT_TRUE(untilFinished(pool, task));
    ASSERT_EQ(launches.records().size(), 1U);
    EXPECT_THAT(launches.records()[0].text, HasSubstr("pool 'render': Aborting creating thread"));
    ASSERT_EQ(errors.records().size(), 1U);
    EXPECT_THAT(errors.records()[0].text, HasSubstr("pool 'render': Error caught: module::method"));
}

class PoolMessages : public PoolFixture {
protected:
    PoolMessages() { spdlog::get("KTThread")->set_level(spdlog::level::debug); }

    /// Has a pool say all that pools say by themselves.
    void provoke(Messages where, const std::string& name = "")
    {
        Pool pool = made(20, 20);  // without workers
        pool->setName(name);
        pool->setMessages(where);
        inside::nbBusyThreads(pool) = 190;
        KT::KTMonitor(0, 0, 0, pool).adjustPool();
        EXPECT_FALSE(pool->xIncreaseThread());
        EXPECT_TRUE(pool->adjustThread(-1));
        const boost::shared_ptr<KT::KTThread> worker(
            new KT::KTThread(pool, 2, inside::wakeMutex(pool), inside::wakeCondition(pool)));
        EXPECT_TRUE(pool->apoptosis(worker));
        pool->shutdown(false);
        auto forgotten = boost::make_shared<KT::KTThreadPool>(1, 1, 0, 0, 0);
        forgotten->setName(name);
        forgotten->setMessages(where);
        forgotten.reset();
    }

    const LogCapture log{"KTThread"};
    const ConsoleCapture console;
    const std::string forgottenLine =
        "KTThreadPool::~KTThreadPool : trying to delete a Thread Pool without shutting it down. "
        "Shutting down the Thread Pool";
};

TEST_F(PoolMessages, GoToTheConsoleByDefault)
{
    provoke(Messages::console, "render");
    EXPECT_EQ(console.text(),
              "INFO: Thread limit reached: (190/25)\nThreadpool limit reached.\n"
              "KTThreadPool::decrease\n" +
                  forgottenLine + "\n");
    EXPECT_TRUE(log.records().empty());
}

TEST_F(PoolMessages, GoToTheLogIfTheOwnerSaysSo)
{
    provoke(Messages::log, "render");
    std::vector<std::string> seen;
    for (const LogRecord& record : log.records()) {
        seen.push_back(std::to_string(record.level) + " " + record.function + " " + record.text);
    }
    EXPECT_THAT(seen,
                ElementsAre("1 adjustPool pool 'render': INFO: Thread limit reached: (190/25)",
                            "1 xIncreaseThread pool 'render': Threadpool limit reached.",
                            "1 apoptosis pool 'render': KTThreadPool::decrease",
                            "3 ~KTThreadPool pool 'render': " + forgottenLine));
    EXPECT_EQ(console.text(), "");
}

TEST_F(PoolMessages, GoNowhereIfTheOwnerSaysSo)
{
    provoke(Messages::none);
    EXPECT_EQ(console.text(), "");
    EXPECT_TRUE(log.records().empty());
}

}  // namespace
