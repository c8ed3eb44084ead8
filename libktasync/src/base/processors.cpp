#include "processors.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>

#include <sched.h>

namespace KT {
namespace detail {

namespace {

/// Rounded up; 0 for no limit, which is what files that aren't there or make no sense count as.
int processorsOf(double quota, double period)
{
    if (!(quota > 0) || !(period > 0) || quota / period > 1e6) {
        return 0;
    }
    return static_cast<int>((quota + period - 1) / period);
}

/// "QUOTA PERIOD" in microseconds, or "max PERIOD".
int limitOfVersion2(const std::string& group)
{
    std::ifstream file(group + "/cpu.max");
    double quota = 0;
    double period = 0;
    return file >> quota >> period ? processorsOf(quota, period) : 0;
}

int limitOfVersion1(const std::string& group)
{
    std::ifstream quotaFile(group + "/cpu.cfs_quota_us");
    std::ifstream periodFile(group + "/cpu.cfs_period_us");
    double quota = 0;
    double period = 0;
    return quotaFile >> quota && periodFile >> period ? processorsOf(quota, period) : 0;
}

/// The smallest limit of a group and of all those around it: each of them holds.
int smallestLimit(const std::string& mount, std::string path,
                  const std::function<int(const std::string&)>& limitOf)
{
    int smallest = 0;
    for (;;) {
        const int limit = limitOf(mount + path);
        if (limit > 0 && (smallest == 0 || limit < smallest)) {
            smallest = limit;
        }
        const std::size_t slash = path.rfind('/');
        if (slash == std::string::npos) {
            return smallest;
        }
        path.erase(slash);
    }
}

}  // namespace

int processorsOfControlGroup(const std::string& root)
{
    std::ifstream groups(root + "/proc/self/cgroup");
    const std::string mount = root + "/sys/fs/cgroup";
    // Lines of "NUMBER:CONTROLLERS:PATH"; version 2 has one, with the number 0 and no controllers.
    for (std::string line; std::getline(groups, line);) {
        std::istringstream parts(line);
        std::string number;
        std::string controllers;
        std::string path;
        std::getline(parts, number, ':');
        std::getline(parts, controllers, ':');
        std::getline(parts, path);
        const bool isVersion2 = controllers.empty();
        if (!isVersion2 && ("," + controllers + ",").find(",cpu,") == std::string::npos) {
            continue;
        }
        const int limit = isVersion2 ? smallestLimit(mount, path, limitOfVersion2)
                                     : smallestLimit(mount + "/cpu", path, limitOfVersion1);
        if (limit > 0) {
            return limit;
        }
    }
    return 0;
}

int processorsOfAffinity()
{
    // The kernel refuses a set that is too small for all the processors that it could have.
    for (int size = CPU_SETSIZE; size <= 1 << 20; size *= 2) {
        const std::unique_ptr<cpu_set_t, void (*)(cpu_set_t*)> set(
            CPU_ALLOC(static_cast<std::size_t>(size)), [](cpu_set_t* used) { CPU_FREE(used); });
        const std::size_t bytes = CPU_ALLOC_SIZE(static_cast<std::size_t>(size));
        if (set && sched_getaffinity(0, bytes, set.get()) == 0) {
            return CPU_COUNT_S(bytes, set.get());
        }
    }
    return 0;
}

}  // namespace detail
}  // namespace KT
