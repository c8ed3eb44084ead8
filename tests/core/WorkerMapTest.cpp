/// The map of workers, read as kttop does: by the process's descriptors.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ktthread/WorkerMapLayout.h>

#include "Pools.h"

namespace {

using Map = KT::core::WorkerMapLayout<std::int32_t>;
using testing::IsEmpty;
using testing::SizeIs;

struct Found {
    int maps = 0;                       ///< of this process: a child has its parent's, too
    std::map<int, std::string> places;  ///< thread and pool
};

Found lookIntoMaps()
{
    Found found;
    const std::string link = std::string("/memfd:") + KT::core::workerMapName + " (deleted)";
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code closed;
        if (std::filesystem::read_symlink(entry.path(), closed) != link) {
            continue;
        }
        const auto map = std::make_unique<Map>();
        const int file = open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
        // One that is being made has nothing in it yet.
        const bool isWhole = read(file, map.get(), sizeof(Map)) == ssize_t{sizeof(Map)};
        close(file);
        if (!isWhole || map->magic != KT::core::workerMapMagic || map->process != getpid()) {
            continue;
        }
        ++found.maps;
        for (const Map::Place& place : map->places) {
            if (place.thread != 0) {
                found.places[place.thread] = place.pool;
            }
        }
    }
    return found;
}

/// What `inChild` returns in a forked child, which ends then.
template <typename InChild>
bool inForkedChild(const InChild& inChild)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(inChild() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status == 0;
}

struct EndOfProcess {
    ~EndOfProcess() { _exit(0); }
};

class WorkerMap : public PoolFixture {
protected:
    /// Whose workers are all in the map.
    Pool named(const std::string& name, int workers)
    {
        const Pool pool = PoolFixture::named(name, workers);
        EXPECT_TRUE(eventually([&] { return count(name) == workers; }));
        return pool;
    }

    static int count(const std::string& pool)
    {
        int workers = 0;
        for (const auto& [thread, name] : lookIntoMaps().places) {
            workers += name == pool ? 1 : 0;
        }
        return workers;
    }
};

TEST_F(WorkerMap, HasTheWorkersOfNamedPools)
{
    const Pool render = named("render", 2);
    const Pool longest = named("a-name-of-thirty-one-characters", 1);
    const Found found = lookIntoMaps();
    EXPECT_EQ(found.maps, 1);
    EXPECT_THAT(found.places, SizeIs(3));
    for (const auto& [thread, name] : found.places) {
        EXPECT_TRUE(std::filesystem::exists("/proc/self/task/" + std::to_string(thread)));
    }
}

TEST_F(WorkerMap, HasAWorkerUnderTheNumberOfItsThread)
{
    const Pool pool = named("render", 2);
    std::atomic<int> thread(0);
    EXPECT_TRUE(pool->enqueue(makeTask([&thread] { thread = gettid(); })));
    EXPECT_TRUE(eventually([&] {
        pool->wake();
        return thread != 0;
    }));
    EXPECT_EQ(lookIntoMaps().places[thread], "render");
}

TEST_F(WorkerMap, LacksTheWorkersOfClosedPools)
{
    const Pool first = named("first", 2);
    const Pool second = named("second", 2);
    EXPECT_TRUE(first->close(false, 60000));
    EXPECT_EQ(count("first"), 0);
    EXPECT_EQ(count("second"), 2);
    const Pool third = named("third", 3);  // in the places of the first, too
    EXPECT_THAT(lookIntoMaps().places, SizeIs(5));
}

TEST_F(WorkerMap, LacksWorkersThatWereCancelled)
{
    Gate gate;
    const Pool pool = named("cancelled", 2);
    EXPECT_TRUE(pool->enqueue(makeTask([&gate] { gate.pass(); })));
    EXPECT_TRUE(untilArrived(pool, gate));
    EXPECT_TRUE(pool->close(true, 60000));
    EXPECT_EQ(count("cancelled"), 0);
}

TEST_F(WorkerMap, LacksWorkersThatRetired)
{
    const Pool pool = named("retires", 20);
    pool->adjustThread(-2);
    EXPECT_TRUE(eventually([&] {
        pool->enqueue(makeTask());
        pool->wake();
        return count("retires") == 18;
    }));
}

TEST_F(WorkerMap, HasNoWorkersOfPoolsWithoutAName)
{
    const Pool unnamed = fixed(2);
    EXPECT_TRUE(untilAsleep(unnamed, 2));
    EXPECT_THAT(lookIntoMaps().places, IsEmpty());
}

TEST_F(WorkerMap, IsNotInheritedByAProgramThatIsStarted)
{
    const Pool pool = named("render", 1);
    EXPECT_NE(std::system("ls -l /proc/self/fd | grep -q ktthread-workers"), 0);
}

/// Sets a limit of the process to nothing while it lives.
class Without {
public:
    explicit Without(__rlimit_resource limited) : resource(limited)
    {
        getrlimit(resource, &before);
        const rlimit none{0, before.rlim_max};
        setrlimit(resource, &none);
    }
    ~Without() { setrlimit(resource, &before); }
    Without(const Without&) = delete;
    Without& operator=(const Without&) = delete;

private:
    const __rlimit_resource resource;
    rlimit before{};
};

TEST_F(WorkerMap, HasALaterWorkerWhereItCouldNotBeMadeForAnEarlierOne)
{
    {
        const Without files(RLIMIT_FSIZE);
        const Pool early = made(1, 1);
        early->setName("early");
        early->init(1, 1, 0, 0, 0);
        const auto task = makeTask();
        early->enqueue(task);
        EXPECT_TRUE(untilFinished(early, task));
    }
    const Pool late = named("late", 1);
}

#ifndef __SANITIZE_THREAD__  // which lets no child of a process with threads make any

TEST_F(WorkerMap, IsNotMadeForPoolsWithoutAName)
{
    EXPECT_TRUE(inForkedChild([&] {
        const Pool unnamed = fixed(2);
        return untilAsleep(unnamed, 2) && lookIntoMaps().maps == 0;
    }));
}

TEST_F(WorkerMap, OfAForkedChildIsAnother)
{
    const Pool parents = named("parents", 2);
    EXPECT_TRUE(inForkedChild([&] {
        const bool hadNone = lookIntoMaps().maps == 0;
        const Pool childs = named("childs", 1);
        const Found found = lookIntoMaps();
        return hadNone && found.maps == 1 && found.places.size() == 1 &&
               childs->close(false, 60000) && lookIntoMaps().places.empty();
    }));
    EXPECT_EQ(count("parents"), 2);
    EXPECT_EQ(count("childs"), 0);
}

TEST_F(WorkerMap, KeepsAPlaceThatAForkedChildGivesBack)
{
    const Pool pool = named("forks", 1);
    std::atomic<int> child(0);
    EXPECT_TRUE(pool->enqueue(makeTask([&child] {
        child = fork();
        if (child == 0) {
            alarm(60);
            // The destructor runs once the worker's loop has been unwound.
            thread_local const EndOfProcess end;
            pthread_exit(const_cast<EndOfProcess*>(&end));
        }
    })));
    EXPECT_TRUE(eventually([&] {
        pool->wake();
        return child != 0;
    }));
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(count("forks"), 1);
}

TEST_F(WorkerMap, IsOneWhenManyPoolsStartAtOnce)
{
    EXPECT_TRUE(inForkedChild([&] {
        Gate gate;
        Threads threads;
        for (int i = 0; i < 8; ++i) {
            threads.start([&gate, pool = made(1, 1)] {
                pool->setName("many");
                gate.pass();
                pool->init(1, 1, 0, 0, 0);
            });
        }
        gate.untilArrived(8);
        gate.open();
        threads.joinAll();
        return eventually([] { return count("many") == 8; }) && lookIntoMaps().maps == 1;
    }));
}

class WorkerMapWithout : public WorkerMap, public testing::WithParamInterface<std::string> {};

TEST_P(WorkerMapWithout, LeavesThePoolAsItIs)
{
#ifdef __SANITIZE_ADDRESS__
    if (GetParam() == "Descriptors") {
        GTEST_SKIP() << "UndefinedBehaviorSanitizer looks at objects through a pipe: it needs two";
    }
#endif
    const auto resource = GetParam() == "Descriptors" ? RLIMIT_NOFILE : RLIMIT_FSIZE;
    EXPECT_TRUE(inForkedChild([&] {
        const Pool pool = made(1, 1);
        pool->setName("unseen");
        bool ran = false;
        {
            const Without limited(resource);
            pool->init(1, 1, 0, 0, 0);
            const auto task = makeTask();
            pool->enqueue(task);
            ran = untilFinished(pool, task);
        }
        return ran && pool->close(false, 60000) && lookIntoMaps().maps == 0;
    }));
}

INSTANTIATE_TEST_SUITE_P(Limits, WorkerMapWithout, testing::Values("Descriptors", "FileSizes"),
                         [](const auto& each) { return each.param; });

TEST_F(WorkerMap, IsNoFileOfTheStandardStreams)
{
    EXPECT_TRUE(inForkedChild([&] {
        close(STDIN_FILENO);
        const Pool pool = made(1, 1);
        pool->setName("unseen");
        pool->init(1, 1, 0, 0, 0);
        const auto task = makeTask();
        pool->enqueue(task);
        return untilFinished(pool, task) && lookIntoMaps().maps == 0;
    }));
}

TEST_F(WorkerMap, LeavesOutWorkersThatItHasNoPlaceFor)
{
    EXPECT_TRUE(inForkedChild([&] {
        const Pool full = named("full", 1);
        auto map = std::make_unique<Map>();
        int file = -1;
        for (int each = 3; each < 256 && map->process != getpid(); ++each) {
            if (pread(each, map.get(), sizeof(Map), 0) == static_cast<ssize_t>(sizeof(Map))) {
                file = each;
            }
        }
        for (Map::Place& place : map->places) {
            place.thread = place.thread == 0 ? 1 : place.thread;
        }
        if (pwrite(file, map.get(), sizeof(Map), 0) != static_cast<ssize_t>(sizeof(Map))) {
            return false;
        }
        const Pool pool = made(1, 1);
        pool->setName("unseen");
        pool->init(1, 1, 0, 0, 0);
        const auto task = makeTask();
        pool->enqueue(task);
        return untilFinished(pool, task) && count("unseen") == 0 && count("full") == 1;
    }));
}

#endif

}  // namespace
