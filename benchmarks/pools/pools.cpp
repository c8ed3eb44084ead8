// pools [REPETITIONS [TASKS]]: how long the same tasks take this library's pool and others.
//
// The pools take turns, repetition by repetition, so that whatever else the machine does hits all
// of them. Writes JSON to standard output: for each workload and pool the nanoseconds a task of
// each repetition.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Floor.h"
#include "Ours.h"
#include "Peers.h"
#include "Workload.h"

namespace {

struct Entry {
    const char* name;
    double (*time)(const Grain&);
};

template <typename... Pools>
std::vector<Entry> entriesOf()
{
    return {{Pools::name(), timeOfGrain<Pools>}...};
}

struct Workload {
    std::string name;
    Grain grain;
};

std::vector<Workload> grainSweep(int tasks)
{
    std::vector<Workload> all;
    for (const bool withService : {false, true}) {
        for (const int producers : {1, 4}) {
            for (const double microseconds : {0.0, 1.0, 10.0, 100.0}) {
                const int number =
                    microseconds < 10 ? tasks : tasks * 2 / static_cast<int>(microseconds);
                char name[80];
                std::snprintf(name, sizeof name, "%s, %g us, %d producer%s",
                              withService ? "W2 with service" : "W1 bare", microseconds, producers,
                              producers == 1 ? "" : "s");
                all.push_back({name, {microseconds, number, 2, producers, withService}});
            }
        }
    }
    return all;
}

}  // namespace

int main(int argc, char** argv)
{
    const int repetitions = argc > 1 ? std::atoi(argv[1]) : 7;
    const int tasks = argc > 2 ? std::atoi(argv[2]) : 100000;
    if (repetitions < 1 || tasks < 100) {
        std::fprintf(stderr,
                     "pools: give a number of repetitions, and one of tasks (100 or more)\n");
        return 2;
    }
    const std::vector<Entry> pools = entriesOf<CorePool, AsyncPool, TbbPool, AsioPool, QtPool,
                                               GlibPool, AprPool, PocoPool, LlvmPool, FloorPool>();
    nlohmann::ordered_json results;
    for (const Workload& workload : grainSweep(tasks)) {
        std::fprintf(stderr, "%s\n", workload.name.c_str());
        for (int repetition = 0; repetition < repetitions; ++repetition) {
            for (const Entry& pool : pools) {
                results[workload.name][pool.name].push_back(pool.time(workload.grain));
            }
        }
    }
    std::printf("%s\n", results.dump(1).c_str());
}
