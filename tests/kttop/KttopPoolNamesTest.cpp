/// Which pools kttop finds: in this process, and in maps that are made up.
#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ktthread/WorkerMapLayout.h>

#include "FakeProc.h"
#include "Pools.h"
#include "ProcText.h"
#include "ProcessReader.h"

namespace {

using Map = KT::core::WorkerMapLayout<std::int32_t>;
using testing::ElementsAre;
using testing::Pair;

const std::int64_t nsASecond = 1000000000;

class KttopPools : public PoolFixture {
protected:
    /// How many workers of this process each pool has.
    std::map<std::string, int> seen()
    {
        std::map<std::string, int> workers;
        for (const WorkerReading& worker : reader.read().workers) {
            ++workers[worker.pool];
        }
        return workers;
    }

    ProcessReader reader{"/proc", getpid(), 100};
};

TEST_F(KttopPools, AreToldApart)
{
    named("render", 2);
    named("io", 1);
    running(3, 3);
    EXPECT_TRUE(eventually([this] {
        return seen() == std::map<std::string, int>{{"", 3}, {"io", 1}, {"render", 2}};
    }));
}

TEST_F(KttopPools, AreReadWithTheDetailsOrWithout)
{
    named("render", 1);
    EXPECT_TRUE(eventually([this] { return seen()["render"] == 1; }));
    WorkerReading worker = reader.read(Details::known).workers.at(0);
    EXPECT_EQ(worker.pool, "render");
    reader.readDetails(worker);
    EXPECT_EQ(worker.pool, "render");
}

/// A map of a process, here this one's, though it says that it's process 10's.
class MadeUpMap {
public:
    MadeUpMap() : map(std::make_unique<Map>()), file(memfd_create(KT::core::workerMapName, 0))
    {
        map->magic = KT::core::workerMapMagic;
        map->process = 10;
    }
    ~MadeUpMap() { close(file); }
    MadeUpMap(const MadeUpMap&) = delete;
    MadeUpMap& operator=(const MadeUpMap&) = delete;

    Map* operator->() { return map.get(); }

    void set(int place, int thread, const std::string& pool)
    {
        map->places[place].thread = thread;
        std::fill_n(map->places[place].pool, sizeof Map::Place::pool, '\0');
        pool.copy(map->places[place].pool, sizeof Map::Place::pool);
    }

    void write(std::size_t bytes = sizeof(Map))
    {
        EXPECT_EQ(ftruncate(file, 0), 0);
        EXPECT_EQ(pwrite(file, map.get(), bytes, 0), static_cast<ssize_t>(bytes));
    }

private:
    std::unique_ptr<Map> map;
    const int file;
};

PoolNames readNow(int process = 10)
{
    PoolNames names("/proc/self", process);
    names.read(0);
    return names;
}

TEST(KttopPoolNames, AreThoseInTheMapNow)
{
    MadeUpMap map;
    map.set(0, 11, "render");
    map.set(4095, 12, "io");
    map.write();
    PoolNames names = readNow();
    EXPECT_EQ(names.of(11), "render");
    EXPECT_EQ(names.of(12), "io");
    EXPECT_EQ(names.of(13), "");
    map.set(0, 0, "render");
    map.set(1, 13, "io");
    map.write();
    names.read(0);
    EXPECT_EQ(names.of(11), "");
    EXPECT_EQ(names.of(13), "io");
}

TEST(KttopPoolNames, AreLookedForAgainWhereOneIsMissing)
{
    PoolNames names = readNow();
    EXPECT_EQ(names.of(11), "");
    MadeUpMap map;
    map.set(0, 11, "render");
    map.write();
    names.read(1 * nsASecond);
    EXPECT_EQ(names.of(11), "") << "too early";
    names.read(5 * nsASecond);
    EXPECT_EQ(names.of(11), "render");
    MadeUpMap another;
    another.set(0, 12, "io");
    another.write();
    names.read(20 * nsASecond);
    EXPECT_EQ(names.of(11), "render");
    names.read(40 * nsASecond);
    EXPECT_EQ(names.of(12), "") << "nothing was missing";
    names.read(60 * nsASecond);
    EXPECT_EQ(names.of(11), "render");
    EXPECT_EQ(names.of(12), "io");
}

TEST(KttopPoolNames, AreNotThoseOfAnotherProcess)
{
    MadeUpMap map;
    map.set(0, 11, "render");
    map.write();
    EXPECT_TRUE(readNow(9).isEmpty());
    EXPECT_FALSE(readNow(10).isEmpty());
}

TEST(KttopPoolNames, MayBeRubbish)
{
    MadeUpMap map;
    map.set(0, 11, std::string(40, 'a'));
    map.set(1, 12, "\x1b[2J\xff");
    map.set(2, 0, "free");
    map.set(3, -1, "being taken");
    map.set(4, 13, "");
    map.write();
    PoolNames names = readNow();
    EXPECT_EQ(names.of(11), std::string(31, 'a'));
    EXPECT_EQ(names.of(12), "\x1b[2J\xff");
    for (const int thread : {0, -1, 13}) {
        EXPECT_EQ(names.of(thread), "");
    }
    map.write(sizeof(Map) - 1);
    EXPECT_TRUE(readNow().isEmpty());
    map.write(0);
    EXPECT_TRUE(readNow().isEmpty());
    map->magic = KT::core::workerMapMagic + 1;
    map.write();
    EXPECT_TRUE(readNow().isEmpty());
}

TEST(KttopPoolNames, AreMissingWhereTheDescriptorsMayNotBeRead)
{
    PoolNames names("/none", 10);
    names.read(0);
    EXPECT_TRUE(names.isEmpty());
}

// As in a container that is looked at from outside.
TEST(KttopPoolNames, AreFoundByTheNumbersOfTheNamespaceWithin)
{
    EXPECT_EQ(parseStatus("Name:\tx\nNSpid:\t4711\t70\t7\nNSpgid:\t1\n").innermost, 7);
    EXPECT_EQ(parseStatus("Name:\tx\nNSpid:\t4711\nNSpgid:\t1\n").innermost, 4711);
    EXPECT_EQ(parseStatus("Name:\tx\nNSpgid:\t1\n").innermost, 0);
    FakeProc proc;
    proc.process(4711, "busy");
    proc.thread(4711, 4712, {"KTThread [idle]"});
    proc.thread(4711, 4713, {"KTThread [idle]"});
    proc.write(proc.root() + "/4711/status", "Name:\tx\nTgid:\t4711\nNSpid:\t4711\t10\n");
    proc.write(proc.threadFolder(4711, 4712) / "status", "Name:\tx\nNSpid:\t4712\t11\n");
    proc.write(proc.threadFolder(4711, 4713) / "status", "Name:\tx\nNSpid:\t4713\t12\n");
    std::filesystem::create_symlink("/proc/self/fd", proc.root() + "/4711/fd");
    MadeUpMap map;
    map.set(0, 11, "render");
    map.set(1, 4713, "wrong");
    map.write();
    std::map<int, std::string> pools;
    for (const WorkerReading& worker : ProcessReader(proc.root(), 4711, 100).read().workers) {
        pools[worker.tid] = worker.pool;
    }
    EXPECT_THAT(pools, ElementsAre(Pair(4712, "render"), Pair(4713, "")));
}

}  // namespace
