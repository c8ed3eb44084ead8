// How long the same work takes this library's pool and others.
//
// The pools take turns, repetition by repetition, so that whatever else the machine does hits all
// of them. Writes JSON to standard output; benchmarks/report makes a page of it.
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Floor.h"
#include "Grain.h"
#include "Ours.h"
#include "Peers.h"
#include "Runner.h"

namespace {

void grainSweep(Runner& runner, int tasks)
{
    for (const bool withService : {false, true}) {
        for (const int producers : {1, 4}) {
            for (const double microseconds : {0.0, 1.0, 10.0, 100.0}) {
                const int number =
                    microseconds < 10 ? tasks : tasks * 2 / static_cast<int>(microseconds);
                const Grain grain = {microseconds, number, 2, producers, withService};
                char title[80];
                std::snprintf(title, sizeof title, "%g us, %d producer%s", microseconds, producers,
                              producers == 1 ? "" : "s");
                runner.compare(
                    {withService ? "W2" : "W1", title, "ns a task"},
                    contestants<TimeOfGrain, CorePool, AsyncPool, TbbPool, AsioPool, QtPool,
                                GlibPool, AprPool, PocoPool, LlvmPool, FloorPool>(grain));
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Compares thread pools; JSON goes to standard output.", "pools");
    Runner::Options options;
    int tasks = 100000;
    app.add_option("--repetitions", options.repetitions, "how often each pool has its turn")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--tasks", tasks, "tasks of the finest grain; the others follow it")
        ->check(CLI::Range(1000, 100000000))
        ->capture_default_str();
    app.add_option("--only", options.only, "only comparisons whose \"W1: title\" this regex finds");
    app.add_option("--pools", options.pools, "only pools whose name this regex finds");
    CLI11_PARSE(app, argc, argv);

    Runner runner(options);
    grainSweep(runner, tasks);
    std::printf("%s\n", runner.results().dump(1).c_str());
}
