#include <ostream>
#include <string>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeProc.h"
#include "ProcText.h"
#include "ProcessFinder.h"
#include "ProcessReader.h"
#include "ThreadName.h"

namespace {

using testing::HasSubstr;

struct Name {
    std::string bytes;
    WorkerState state;
    std::string task;
};

void PrintTo(const Name& name, std::ostream* out)
{
    *out << name.bytes;
}

class KttopThreadName : public testing::TestWithParam<Name> {};

TEST_P(KttopThreadName, TellsStateAndTask)
{
    const auto parsed = parseThreadName(GetParam().bytes);
    ASSERT_TRUE(parsed);
    EXPECT_STREQ(nameOf(parsed->state), nameOf(GetParam().state));
    EXPECT_EQ(parsed->task, GetParam().task);
}

INSTANTIATE_TEST_SUITE_P(AsTheKernelCutsThem, KttopThreadName,
                         testing::Values(Name{"KTThread [new]", WorkerState::fresh, ""},
                                         Name{"KTThread [idle]", WorkerState::idle, ""},
                                         Name{"KTThread [sleep", WorkerState::sleeping, ""},
                                         Name{"KTTask: image-r", WorkerState::running, "image-r"},
                                         Name{"KTTask:  [runni", WorkerState::running, ""},
                                         Name{"KTTask:  [finis", WorkerState::finished, ""},
                                         Name{"KTTask: a [runn", WorkerState::running, "a"},
                                         Name{"KTTask: abcd [r", WorkerState::running, "abcd"},
                                         Name{"KTTask: abcd [f", WorkerState::finished, "abcd"},
                                         Name{"KTTask: abcde [", WorkerState::running, "abcde"},
                                         Name{"KTTask: abcdef ", WorkerState::running, "abcdef"},
                                         Name{"KTTask: ]) R 1\n", WorkerState::running, "]) R 1\n"},
                                         Name{"KTTask: \x1b[31m\xff\n", WorkerState::running,
                                              "\x1b[31m\xff\n"},
                                         // Names with a zero byte in them end there.
                                         Name{"KTTask: ab", WorkerState::running, "ab"},
                                         Name{"KTTask: ab [", WorkerState::running, "ab ["},
                                         Name{"KTTask: ", WorkerState::running, ""}));

TEST(KttopThreadNames, OfOtherThreadsAreNoWorkers)
{
    for (const std::string name : {"", "busy", "KTTask:", "KTThread", "KTThread [new] ",
                                   "kttask: a", " KTTask: a", "KTThread [idle"}) {
        EXPECT_FALSE(parseThreadName(name)) << name;
    }
}

TEST(KttopProcText, StatHasAnythingForAName)
{
    const std::string fields = " 1 1 1 0 -1 4194304 1 0 0 0 30 12 0 0 20 0 1 0 4711 0 0\n";
    for (const std::string name : {"a", "", "a b", "(", ")", ") R 5 (", "a) S 1 1\n) Z 9"}) {
        std::string text = "7 (";
        text += name;
        text += ") S";
        text += fields;
        const auto stat = parseStat(text);
        ASSERT_TRUE(stat) << name;
        EXPECT_EQ(stat->name, name);
        EXPECT_EQ(stat->state, 'S');
        EXPECT_EQ(stat->cpuTicks, 42U);
        EXPECT_EQ(stat->start, 4711U);
    }
}

TEST(KttopProcText, StatThatIsCutOffIsNone)
{
    const std::string whole = "7 (a) S 1 1 1 0 -1 4194304 1 0 0 0 30 12 0 0 20 0 1 0 4711";
    EXPECT_TRUE(parseStat(whole));
    for (std::size_t length = 0; length < whole.size() - 4; ++length) {
        EXPECT_FALSE(parseStat(whole.substr(0, length))) << length;
    }
    EXPECT_FALSE(parseStat(")7("));
    EXPECT_FALSE(parseStat("7 (a) S 1 x 1 0 -1 4194304 1 0 0 0 30 12 0 0 20 0 1 0 4711"));
}

class KttopReader : public testing::Test {
protected:
    KttopReader() { proc.process(10, "busy"); }

    ProcessReader reader(std::size_t keep = 1000) { return {proc.root(), 10, keep}; }

    static std::string messageOf(const std::function<void()>& action)
    {
        try {
            action();
        } catch (const ProcessEnded& error) {
            return std::string("ended: ") + error.what();
        } catch (const ProcessError& error) {
            return error.what();
        }
        return "nothing was thrown";
    }

    FakeProc proc;
};

TEST_F(KttopReader, ReadsAWorkersFiles)
{
    proc.thread(10, 11, {"KTTask: image-r", 'S', 5000, 70, 8, 9, 123, "hrtimer_nanosleep"});
    const Sample sample = reader().read();
    ASSERT_EQ(sample.workers.size(), 1U);
    const WorkerReading& worker = sample.workers.front();
    EXPECT_EQ(worker.tid, 11);
    EXPECT_EQ(worker.start, 123U);
    EXPECT_EQ(worker.state, WorkerState::running);
    EXPECT_EQ(worker.task, "image-r");
    EXPECT_EQ(worker.kernelState, 'S');
    EXPECT_EQ(worker.cpuNs, 5000U);
    EXPECT_EQ(worker.waitNs, 70U);
    EXPECT_EQ(worker.voluntary, 8U);
    EXPECT_EQ(worker.involuntary, 9U);
    EXPECT_EQ(worker.waitsIn, "hrtimer_nanosleep");
    EXPECT_EQ(sample.otherThreads, 1);
}

TEST_F(KttopReader, KeepsWorkersApartFromOtherThreads)
{
    proc.thread(10, 11, {"KTThread [new]"});
    proc.thread(10, 12, {"ticker"});
    proc.thread(10, 13, {"KTThread [sleep"});
    const Sample sample = reader().read();
    ASSERT_EQ(sample.workers.size(), 2U);
    EXPECT_EQ(sample.workers[0].tid, 11);
    EXPECT_EQ(sample.workers[1].tid, 13);
    EXPECT_EQ(sample.otherThreads, 2);
}

TEST_F(KttopReader, TakesNoMainThreadForAWorker)
{
    proc.process(10, "KTTask: forked ");
    const Sample sample = reader().read();
    EXPECT_TRUE(sample.workers.empty());
    EXPECT_EQ(sample.otherThreads, 1);
}

// Both ways of reading: files kept open, and opened each time.
class KttopReaderKeeping : public KttopReader, public testing::WithParamInterface<std::size_t> {};

TEST_P(KttopReaderKeeping, FollowsWhatChanges)
{
    proc.thread(10, 11, {"KTThread [sleep"});
    proc.thread(10, 12, {"KTThread [sleep"});
    ProcessReader watched = reader(GetParam());
    EXPECT_EQ(watched.read().workers.size(), 2U);
    proc.thread(10, 11, {"KTTask: load [r", 'R', 900});
    proc.endThread(10, 12);
    proc.thread(10, 13, {"KTThread [new]"});
    const Sample sample = watched.read();
    ASSERT_EQ(sample.workers.size(), 2U);
    EXPECT_EQ(sample.workers[0].task, "load");
    EXPECT_EQ(sample.workers[0].cpuNs, 900U);
    EXPECT_EQ(sample.workers[0].waitsIn, "");  // a running thread waits nowhere
    EXPECT_EQ(sample.workers[1].tid, 13);
    EXPECT_EQ(sample.workers[1].state, WorkerState::fresh);
}

INSTANTIATE_TEST_SUITE_P(Files, KttopReaderKeeping, testing::Values(0U, 1U, 5U, 1000U));

TEST_F(KttopReader, DoesNotReadFilesOfThreadsThatHaveNotRunSince)
{
    FakeThread thread{"KTThread [sleep"};
    proc.thread(10, 11, thread);
    ProcessReader watched = reader();
    watched.read();
    thread.voluntary = 5;
    thread.waitsIn = "elsewhere";
    proc.thread(10, 11, thread);
    EXPECT_EQ(watched.read().workers.at(0).voluntary, 0U);
    EXPECT_EQ(watched.read().workers.at(0).waitsIn, "futex_wait_queue");
    ++thread.slices;
    proc.thread(10, 11, thread);
    EXPECT_EQ(watched.read().workers.at(0).voluntary, 5U);
    EXPECT_EQ(watched.read().workers.at(0).waitsIn, "elsewhere");
}

TEST_F(KttopReader, ReadsAllFilesOfThreadsThatRan)
{
    FakeThread thread{"KTTask: load [r", 'R'};
    proc.thread(10, 11, thread);
    ProcessReader watched = reader();
    watched.read();
    thread.state = 'S';  // it has left the processor, which is no further slice
    proc.thread(10, 11, thread);
    EXPECT_EQ(watched.read().workers.at(0).kernelState, 'S');
}

TEST_F(KttopReader, ReadsDetailsOfRequestedThreadsOnly)
{
    FakeThread thread{"KTTask: load [r", 'S', 5000, 70, 8, 9, 123, "hrtimer_nanosleep"};
    proc.thread(10, 11, thread);
    ProcessReader watched = reader();
    WorkerReading worker = watched.read(Details::known).workers.at(0);
    EXPECT_FALSE(worker.hasDetails);
    EXPECT_EQ(worker.cpuNs, 5000U);
    EXPECT_EQ(worker.waitNs, 70U);
    EXPECT_EQ(worker.slices, 3U);
    watched.readDetails(worker);
    EXPECT_TRUE(worker.hasDetails);
    EXPECT_EQ(worker.kernelState, 'S');
    EXPECT_EQ(worker.voluntary, 8U);
    EXPECT_EQ(worker.involuntary, 9U);
    EXPECT_EQ(worker.waitsIn, "hrtimer_nanosleep");
    // It still sleeps: what was read before holds.
    worker = watched.read(Details::known).workers.at(0);
    EXPECT_TRUE(worker.hasDetails);
    EXPECT_EQ(worker.voluntary, 8U);
    EXPECT_EQ(worker.waitsIn, "hrtimer_nanosleep");
    ++thread.slices;
    thread.state = 'R';
    proc.thread(10, 11, thread);
    worker = watched.read(Details::known).workers.at(0);
    EXPECT_FALSE(worker.hasDetails);
    watched.readDetails(worker);
    EXPECT_EQ(worker.kernelState, 'R');
    EXPECT_EQ(worker.waitsIn, "");
    // A thread that was ready to run may sleep by now, without a further slice.
    EXPECT_FALSE(watched.read(Details::known).workers.at(0).hasDetails);
}

TEST_F(KttopReader, HasNoDetailsOfAThreadThatHasEndedSince)
{
    for (const std::size_t keep : {0U, 1000U}) {
        proc.thread(10, 11, {"KTTask: load [r"});
        ProcessReader watched = reader(keep);
        WorkerReading worker = watched.read(Details::known).workers.at(0);
        WorkerReading another = worker;
        another.start = 200;
        watched.readDetails(another);
        EXPECT_FALSE(another.hasDetails);
        proc.endThread(10, 11);
        watched.readDetails(worker);
        EXPECT_FALSE(worker.hasDetails);
        watched.read(Details::known);
        watched.readDetails(worker);
        EXPECT_FALSE(worker.hasDetails);
    }
}

TEST_F(KttopReader, ReadsAllDetailsWhereTheKernelCountsNoSlices)
{
    FakeThread thread{"KTThread [sleep"};
    for (const std::uint64_t voluntary : {5U, 6U}) {
        thread.voluntary = voluntary;
        proc.thread(10, 11, thread);
        std::filesystem::remove(proc.threadFolder(10, 11) / "schedstat");
        const WorkerReading worker = reader().read(Details::known).workers.at(0);
        EXPECT_TRUE(worker.hasDetails);
        EXPECT_EQ(worker.voluntary, voluntary);
    }
}

TEST_F(KttopReader, ClosesTheFilesOfThreadsThatHaveEnded)
{
    const auto openFiles = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    ProcessReader watched = reader();
    const auto before = openFiles();
    for (int tid = 11; tid < 61; ++tid) {
        proc.thread(10, tid, {"KTThread [idle]"});
    }
    EXPECT_EQ(watched.read().workers.size(), 50U);
    EXPECT_EQ(openFiles(), before + 50 * 4);
    for (int tid = 11; tid < 61; ++tid) {
        proc.endThread(10, tid);
    }
    EXPECT_EQ(watched.read().workers.size(), 0U);
    EXPECT_EQ(openFiles(), before);
}

TEST_F(KttopReader, DoesWithoutSchedstatAndWchan)
{
    proc.thread(10, 11, {"KTTask: load [r", 'S', 2500000000});
    std::filesystem::remove(proc.threadFolder(10, 11) / "schedstat");
    proc.write(proc.threadFolder(10, 11) / "wchan", "0");
    const Sample sample = reader().read();
    ASSERT_EQ(sample.workers.size(), 1U);
    const auto ticks = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
    EXPECT_EQ(sample.workers[0].cpuNs, 250 * (1000000000 / ticks));
    EXPECT_FALSE(sample.workers[0].waitNs);
    EXPECT_EQ(sample.workers[0].waitsIn, "");
}

TEST_F(KttopReader, DoesWithASchedstatThatIsNotKept)
{
    FakeThread thread{"KTTask: load [r", 'S', 2500000000};
    ProcessReader watched = reader();
    for (const std::uint64_t voluntary : {5U, 6U}) {
        thread.voluntary = voluntary;
        proc.thread(10, 11, thread);
        proc.write(proc.threadFolder(10, 11) / "schedstat", "0 0 0\n");
        const WorkerReading worker = watched.read(Details::known).workers.at(0);
        EXPECT_GT(worker.cpuNs, 0U);
        EXPECT_FALSE(worker.waitNs);
        EXPECT_EQ(worker.voluntary, voluntary);
    }
}

TEST_F(KttopReader, ReadsLongFilesToTheirEnd)
{
    proc.thread(10, 11, {"KTThread [idle]"});
    proc.write(proc.threadFolder(10, 11) / "status",
               "Name:\tx\nState:\tS\nGroups:\t" + std::string(20000, '1') +
                   "\nvoluntary_ctxt_switches:\t77\nnonvoluntary_ctxt_switches:\t5\n");
    const Sample sample = reader().read();
    ASSERT_EQ(sample.workers.size(), 1U);
    EXPECT_EQ(sample.workers[0].voluntary, 77U);
    EXPECT_EQ(sample.workers[0].involuntary, 5U);
}

TEST_F(KttopReader, SaysThatThereIsNoSuchProcess)
{
    EXPECT_EQ(messageOf([this] { ProcessReader(proc.root(), 99, 0); }), "there is no process 99");
}

TEST_F(KttopReader, SaysThatANumberIsAThreads)
{
    proc.process(11, "thread");
    proc.write(proc.root() + "/11/status", "Name:\tx\nState:\tS\nTgid:\t10\n");
    EXPECT_EQ(messageOf([this] { ProcessReader(proc.root(), 11, 0); }),
              "11 is a thread of process 10; give that");
}

TEST_F(KttopReader, SaysThatTheProcessHasEnded)
{
    ProcessReader watched = reader();
    proc.end(10);
    EXPECT_EQ(messageOf([&] { watched.read(); }), "ended: process 10 (busy) has ended");
}

TEST_F(KttopReader, TakesAZombieForEndedOnceItsOtherThreadsHave)
{
    proc.thread(10, 11, {"KTThread [idle]"});
    ProcessReader watched = reader();
    proc.process(10, "busy", 100, 'Z');
    EXPECT_EQ(watched.read().workers.size(), 1U);
    proc.endThread(10, 11);
    EXPECT_EQ(messageOf([&] { watched.read(); }), "ended: process 10 (busy) has ended");
    EXPECT_EQ(messageOf([this] { reader(); }), "ended: process 10 (busy) has ended");
}

TEST_F(KttopReader, SaysThatThePidIsAnotherProcessNow)
{
    ProcessReader watched = reader();
    proc.process(10, "\x1b[2Jevil", 101);
    EXPECT_EQ(messageOf([&] { watched.read(); }),
              "ended: process 10 (busy) has ended; 10 is another process now (?[2Jevil)");
}

TEST_F(KttopReader, SaysThatItMayNotRead)
{
    std::filesystem::permissions(proc.root() + "/10", std::filesystem::perms::owner_all);
    const bool isRoot = geteuid() == 0;
    if (isRoot) {
        ASSERT_EQ(seteuid(65534), 0);
    } else {
        std::filesystem::permissions(proc.root() + "/10", std::filesystem::perms::none);
    }
    const std::string message = messageOf([this] { reader(); });
    if (isRoot) {
        ASSERT_EQ(seteuid(0), 0);
    } else {
        std::filesystem::permissions(proc.root() + "/10", std::filesystem::perms::owner_all);
    }
    EXPECT_EQ(message, "process 10 may not be read: Permission denied");
}

using KttopFinder = KttopReader;

TEST_F(KttopFinder, TakesANumberForAPid)
{
    EXPECT_EQ(findProcess(proc.root(), "4711"), 4711);
    EXPECT_EQ(messageOf([this] { findProcess(proc.root(), "99999999999"); }),
              "there is no process 99999999999");
    EXPECT_EQ(messageOf([this] { findProcess(proc.root(), "0"); }), "there is no process 0");
}

TEST_F(KttopFinder, FindsByTheKernelsNameAndByTheFilesName)
{
    proc.process(20, "a-long-name-tha", 100, 'S',
                 std::string("/usr/bin/a-long-name-that-was\0-x", 32));
    proc.process(30, "renamed", 100, 'S', std::string("./tool\0arg", 10));
    EXPECT_EQ(findProcess(proc.root(), "busy"), 10);
    EXPECT_EQ(findProcess(proc.root(), "a-long-name-that-was"), 20);
    EXPECT_EQ(findProcess(proc.root(), "a-long-name-tha"), 20);
    EXPECT_EQ(findProcess(proc.root(), "renamed"), 30);
    EXPECT_EQ(findProcess(proc.root(), "tool"), 30);
}

TEST_F(KttopFinder, SaysThatNoneOrSeveralMatch)
{
    EXPECT_EQ(messageOf([this] { findProcess(proc.root(), "bus"); }), "no process is called 'bus'");
    EXPECT_EQ(messageOf([this] { findProcess(proc.root(), "\x1b"); }), "no process is called '?'");
    proc.process(9, "busy");
    EXPECT_EQ(messageOf([this] { findProcess(proc.root(), "busy"); }),
              "2 processes are called 'busy' (9, 10); give a pid");
    for (int pid = 100; pid < 120; ++pid) {
        proc.process(pid, "busy");
    }
    EXPECT_THAT(
        messageOf([this] { findProcess(proc.root(), "busy"); }),
        HasSubstr("22 processes are called 'busy' (9, 10, 100, 101, 102, 103, 104, 105, ...)"));
}

TEST_F(KttopFinder, SaysThatTheDirectoryCantBeRead)
{
    EXPECT_EQ(messageOf([this] { findProcess(proc.root() + "/none", "busy"); }),
              proc.root() + "/none can't be read: No such file or directory");
}

}  // namespace
