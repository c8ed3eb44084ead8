#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <kterror/KTError.h>

#include "Async.h"

namespace {

using testing::HasSubstr;
using Events = std::vector<nlohmann::json>;

/// A file that is there for the test.
class TraceRecorder : public testing::Test {
protected:
    TraceRecorder()
    {
        const int file = mkstemp(path.data());
        EXPECT_GE(file, 0);
        close(file);
    }
    ~TraceRecorder() override
    {
        std::remove(path.c_str());
        unsetenv("KT_TRACE");
    }

    /// What is in the file; a failure if that is no JSON array. A read during a write
    /// may see parts of both states, and is repeated.
    Events events() const
    {
        nlohmann::json all;
        EXPECT_TRUE(eventually([&] {
            std::ifstream file(path);
            all = nlohmann::json::parse(file, nullptr, false);
            return all.is_array();
        }));
        return all.is_array() ? all.get<Events>() : Events();
    }

    Events eventsOf(const std::string& kind) const
    {
        Events found;
        for (const nlohmann::json& event : events()) {
            if (event["ph"] == kind) {
                found.push_back(event);
            }
        }
        return found;
    }

    bool hasCounter(const std::string& name, const std::string& series, int value) const
    {
        for (const nlohmann::json& event : eventsOf("C")) {
            if (event["name"] == name && event["args"][series] == value) {
                return true;
            }
        }
        return false;
    }

    std::string path = testing::TempDir() + "trace-XXXXXX";
};

using TraceRecorderDeathTest = TraceRecorder;

TEST_F(TraceRecorder, HasASliceForEachTaskInTheLaneOfItsThread)
{
    std::vector<pid_t> threads;
    {
        KT::KTScopedPool pool(fixedSize(1));
        const KT::KTTraceRecorder trace(pool, path);
        for (const char* const name : {"first", "second"}) {
            KT::submit(pool, name, [&threads] {
                threads.push_back(static_cast<pid_t>(syscall(SYS_gettid)));
                usleep(2000);
            }).get();
        }
        EXPECT_THROW(KT::submit(pool, "fails", [] { throw 1; }).get(), int);
        EXPECT_THROW(KT::submit(pool, "gives up", [] { throw KT::KTCancelled("x"); }).get(),
                     KT::KTCancelled);
    }
    const Events slices = eventsOf("X");
    ASSERT_EQ(slices.size(), 4U);
    const std::vector<std::string> names = {"first", "second", "fails", "gives up"};
    const std::vector<std::string> outcomes = {"done", "done", "failed", "cancelled"};
    double endOfLast = 0;
    for (std::size_t i = 0; i < slices.size(); ++i) {
        EXPECT_EQ(slices[i]["name"], names[i]);
        EXPECT_EQ(slices[i]["args"]["outcome"], outcomes[i]);
        EXPECT_EQ(slices[i]["pid"], getpid());
        EXPECT_EQ(slices[i]["tid"], threads.at(0));
        EXPECT_GE(slices[i]["args"]["waited_us"], 0);
        EXPECT_GE(slices[i]["dur"], i < 2 ? 2000 : 0);
        EXPECT_GE(slices[i]["ts"], endOfLast);
        endOfLast = slices[i]["ts"].get<double>() + slices[i]["dur"].get<double>();
    }
    int lanes = 0;
    for (const nlohmann::json& event : eventsOf("M")) {
        lanes += event["name"] == "thread_name" && event["tid"] == threads.at(0);
    }
    EXPECT_EQ(lanes, 1);
}

TEST_F(TraceRecorder, SaysHowLongTasksWaited)
{
    {
        HeldPool held;
        const KT::KTTraceRecorder trace(held.pool, path);
        KT::KTFuture<void> future = KT::submit(held.pool, "waits", [] {});
        usleep(5000);
        held.release();
        future.get();
    }
    const Events slices = eventsOf("X");
    ASSERT_EQ(slices.size(), 1U);  // what was submitted before isn't there
    EXPECT_GE(slices[0]["args"]["waited_us"], 5000);
}

TEST_F(TraceRecorder, MarksTasksThatNeverBegan)
{
    HeldPool held;
    const KT::KTTraceRecorder trace(held.pool, path);
    KT::KTFuture<void> future = KT::submit(held.pool, "never", [] {});
    held.pool.pool()->shutdown(false);
    EXPECT_THROW(future.get(), KT::KTCancelled);
    held.release();
    EXPECT_TRUE(eventually([this] { return eventsOf("i").size() == 1; }));
    EXPECT_EQ(eventsOf("i").at(0)["name"], "never");
    EXPECT_EQ(eventsOf("i").at(0)["args"]["outcome"], "cancelled");
}

TEST_F(TraceRecorder, TakesAnyName)
{
    {
        KT::KTScopedPool pool(fixedSize(1));
        const KT::KTTraceRecorder trace(pool, path);
        KT::submit(pool, "\"\\\n\x01", [] {}).get();
        KT::submit(pool, "no UTF-8: \xff", [] {}).get();
    }
    const Events slices = eventsOf("X");
    ASSERT_EQ(slices.size(), 2U);
    EXPECT_EQ(slices[0]["name"], "\"\\\n\x01");
    EXPECT_EQ(slices[1]["name"], "no UTF-8: \xef\xbf\xbd");
}

TEST_F(TraceRecorder, CountersFollowThePool)
{
    HeldPool held;
    KT::KTTraceRecorder trace(held.pool, path, 1);
    std::vector<KT::KTFuture<void>> futures;
    for (int i = 0; i < 3; ++i) {
        futures.push_back(KT::submit(held.pool, [] {}));
    }
    const auto shows = [&](const char* name, const char* series, int value) {
        return eventually([&] {
            trace.flush();
            return hasCounter(name, series, value);
        });
    };
    EXPECT_TRUE(shows("queue", "queued", 3));
    EXPECT_TRUE(shows("workers", "busy", 1));
    held.release();
    futures.back().get();
    EXPECT_TRUE(shows("queue", "queued", 0));
    EXPECT_TRUE(shows("workers", "idle", 1));
}

TEST_F(TraceRecorder, HasTheNameOfThePoolInThoseOfLanesAndTracks)
{
    KT::KTPoolOptions options = fixedSize(1);
    options.name = "a \"pool\"";
    KT::KTScopedPool pool(options);
    KT::KTTraceRecorder trace(pool, path, 1);
    KT::submit(pool, "one", [] {}).get();
    EXPECT_TRUE(eventually([&] {
        trace.flush();
        return hasCounter("a \"pool\" workers", "idle", 1) &&
               hasCounter("a \"pool\" queue", "queued", 0);
    }));
    const Events names = eventsOf("M");
    ASSERT_EQ(names.size(), 2U);
    EXPECT_EQ(names[1]["args"]["name"], "a \"pool\" worker");
}

TEST_F(TraceRecorder, IsInTheFileSoonByItself)
{
    KT::KTScopedPool pool(fixedSize(1));
    const KT::KTTraceRecorder trace(pool, path);
    KT::submit(pool, "one", [] {}).get();
    EXPECT_TRUE(eventually([this] { return eventsOf("X").size() == 1; }));
}

TEST_F(TraceRecorder, ShowsAClosedPoolWhileItIsKept)
{
    KT::KTScopedPool pool(fixedSize(1));
    const KT::KTTraceRecorder trace(pool, path);
    KT::submit(pool, "one", [] {}).get();
    pool.close();
    EXPECT_TRUE(
        eventually([this] { return !eventsOf("X").empty() && hasCounter("workers", "idle", 0); }));
}

TEST_F(TraceRecorder, LosesNothingOfManyTasksOfManyThreads)
{
    const int tasks = 5000;
    {
        KT::KTScopedPool pool(fixedSize(4));
        KT::KTTraceRecorder trace(pool, path);
        KT::KTTaskGroup group(pool);
        for (int i = 0; i < tasks; ++i) {
            group.run([] {});
            if (i % 500 == 0) {
                trace.flush();
                events();  // whole at any time
            }
        }
        group.wait();
    }
    EXPECT_EQ(eventsOf("X").size(), static_cast<std::size_t>(tasks));
}

TEST_F(TraceRecorder, SeveralMayRecordAPool)
{
    {
        KT::KTScopedPool pool(fixedSize(1));
        const KT::KTTraceRecorder trace(pool, path);
        {
            const KT::KTTraceRecorder other(pool, path + ".other");
            KT::submit(pool, "both", [] {}).get();
        }
        std::remove((path + ".other").c_str());
        KT::submit(pool, "one", [] {}).get();
    }
    EXPECT_EQ(eventsOf("X").size(), 2U);
}

TEST_F(TraceRecorder, InvalidArgumentsAreRefused)
{
    KT::KTScopedPool pool(fixedSize(1));
    const auto refusal = [&](const std::string& file, int sampleMs) {
        const auto error =
            thrownBy<KT::KTError>([&] { const KT::KTTraceRecorder trace(pool, file, sampleMs); });
        return error ? error->toString() : std::string();
    };
    EXPECT_THAT(refusal(path, 0), HasSubstr("sampleMs is 0: it must be 1 or more"));
    EXPECT_THAT(refusal("/no/such/folder", 5),
                HasSubstr("'/no/such/folder' can't be written: No such file or directory"));
    EXPECT_THAT(refusal("/dev/full", 5), HasSubstr("'/dev/full' can't be written: No space left"));
}

TEST_F(TraceRecorder, AForkedChildDoesNothing)
{
    const auto pool = std::make_unique<KT::KTScopedPool>(fixedSize(1));
    auto trace = std::make_unique<KT::KTTraceRecorder>(*pool, path);
    KT::submit(*pool, "parent", [] {}).get();
    trace->flush();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        trace->flush();
        trace.reset();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    KT::submit(*pool, "parent", [] {}).get();
    trace.reset();
    EXPECT_EQ(eventsOf("X").size(), 2U);
}

void recordAndLeave(const std::string& path, int tasks)
{
    static KT::KTScopedPool* const pool = new KT::KTScopedPool(fixedSize(1));
    static KT::KTTraceRecorder* const trace = new KT::KTTraceRecorder(*pool, path);
    for (int i = 0; i < tasks; ++i) {
        KT::submit(*pool, "left", [] {}).get();
    }
    (void)trace;
}

TEST_F(TraceRecorderDeathTest, WritesTheRestWhenTheProcessEnds)
{
    // The test runs again in the child, with a file of its own.
    setenv("KT_TRACE", path.c_str(), 0);
    EXPECT_EXIT(
        {
            recordAndLeave(std::getenv("KT_TRACE"), 3);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(eventsOf("X").size(), 3U);
}

// Without any order between the two but the recorder's own: ThreadSanitizer looks for that.
void endWhileAnotherThreadRecords(const std::string& path)
{
    std::atomic<bool> isRecording{false};
    std::thread([&] {
        recordAndLeave(path, 1);
        isRecording.store(true, std::memory_order_relaxed);
        pause();
    }).detach();
    EXPECT_TRUE(eventually([&] { return isRecording.load(std::memory_order_relaxed); }));
    std::exit(0);
}

TEST_F(TraceRecorderDeathTest, WritesTheRestOfARecorderThatAnotherThreadMade)
{
    setenv("KT_TRACE", path.c_str(), 0);
    EXPECT_EXIT(endWhileAnotherThreadRecords(std::getenv("KT_TRACE")), testing::ExitedWithCode(0),
                "");
    EXPECT_EQ(eventsOf("X").size(), 1U);
}

TEST_F(TraceRecorderDeathTest, ACrashLeavesAReadableFile)
{
    setenv("KT_TRACE", path.c_str(), 0);
    EXPECT_EXIT(
        {
            recordAndLeave(std::getenv("KT_TRACE"), 2000);
            std::raise(SIGKILL);
        },
        testing::KilledBySignal(SIGKILL), "");
    const std::size_t slices = eventsOf("X").size();
    EXPECT_GT(slices, 500U);
    EXPECT_LE(slices, 2000U);
}

void fillADisk(const std::string& path)
{
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {200000, 200000};
    setrlimit(RLIMIT_FSIZE, &limit);
    recordAndLeave(path, 5000);
}

/// Whether a recorder tells of a full disk, and not before.
bool tellsOfAFullDisk(const std::string& path)
{
    std::signal(SIGXFSZ, SIG_IGN);
    KT::KTScopedPool pool(fixedSize(1));
    KT::KTTraceRecorder trace(pool, path);
    trace.flush();
    const bool tooEarly = trace.hasFailed();
    const rlimit none = {1, 1};
    setrlimit(RLIMIT_FSIZE, &none);
    KT::submit(pool, "too much", [] {}).get();
    trace.flush();
    return !tooEarly && trace.hasFailed();
}

TEST_F(TraceRecorderDeathTest, TellsThatItHasFailed)
{
    setenv("KT_TRACE", path.c_str(), 0);
    EXPECT_EXIT(std::_Exit(tellsOfAFullDisk(std::getenv("KT_TRACE")) ? 0 : 1),
                testing::ExitedWithCode(0), "");
}

TEST_F(TraceRecorderDeathTest, AFullDiskEndsTheRecording)
{
    setenv("KT_TRACE", path.c_str(), 0);
    EXPECT_EXIT(
        {
            fillADisk(std::getenv("KT_TRACE"));
            std::exit(0);
        },
        testing::ExitedWithCode(0), "can't be written, and records no more: File too large");
    EXPECT_GT(eventsOf("X").size(), 500U);
    EXPECT_LT(eventsOf("X").size(), 5000U);
}

}  // namespace
