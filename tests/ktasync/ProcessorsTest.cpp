#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "processors.h"

namespace {

namespace fs = std::filesystem;

/// A file system of a test's own.
class ControlGroups : public testing::Test {
protected:
    ControlGroups()
    {
        std::string pattern = (fs::temp_directory_path() / "processors.XXXXXX").string();
        root = mkdtemp(pattern.data());
    }
    ~ControlGroups() override { fs::remove_all(root); }

    void write(const std::string& path, const std::string& text) const
    {
        fs::create_directories((root + path).substr(0, (root + path).rfind('/')));
        std::ofstream(root + path) << text << '\n';
    }

    int granted() const { return KT::detail::processorsOfControlGroup(root); }

    std::string root;
};

TEST_F(ControlGroups, NoFilesMeanNoLimit)
{
    EXPECT_EQ(granted(), 0);
    write("/proc/self/cgroup", "0::/group");
    EXPECT_EQ(granted(), 0);
}

TEST_F(ControlGroups, Version2IsRoundedUp)
{
    write("/proc/self/cgroup", "0::/");
    write("/sys/fs/cgroup/cpu.max", "150000 100000");
    EXPECT_EQ(granted(), 2);
    write("/sys/fs/cgroup/cpu.max", "200000 100000");
    EXPECT_EQ(granted(), 2);
    write("/sys/fs/cgroup/cpu.max", "1000 100000");
    EXPECT_EQ(granted(), 1);
}

TEST_F(ControlGroups, MaxMeansNoLimit)
{
    write("/proc/self/cgroup", "0::/group");
    write("/sys/fs/cgroup/group/cpu.max", "max 100000");
    EXPECT_EQ(granted(), 0);
}

TEST_F(ControlGroups, SmallestLimitOnTheWayUpHolds)
{
    write("/proc/self/cgroup", "0::/a/b/c");
    write("/sys/fs/cgroup/a/b/c/cpu.max", "800000 100000");
    write("/sys/fs/cgroup/a/b/cpu.max", "300000 100000");
    write("/sys/fs/cgroup/a/cpu.max", "max 100000");
    EXPECT_EQ(granted(), 3);
}

TEST_F(ControlGroups, Version1IsReadWhereItsControllerIs)
{
    write("/proc/self/cgroup", "12:memory:/a\n5:cpu,cpuacct:/a\n0::/a");
    write("/sys/fs/cgroup/cpu/a/cpu.cfs_quota_us", "400000");
    write("/sys/fs/cgroup/cpu/a/cpu.cfs_period_us", "100000");
    EXPECT_EQ(granted(), 4);
    write("/sys/fs/cgroup/cpu/a/cpu.cfs_quota_us", "-1");
    EXPECT_EQ(granted(), 0);
}

TEST_F(ControlGroups, AnInvalidFileMeansNoLimit)
{
    write("/proc/self/cgroup", "0::/");
    for (const char* const text : {"", "many", "100000", "0 100000", "-5 100000", "100000 0"}) {
        write("/sys/fs/cgroup/cpu.max", text);
        EXPECT_EQ(granted(), 0) << text;
    }
    write("/proc/self/cgroup", "what is this");
    EXPECT_EQ(granted(), 0);
}

}  // namespace
