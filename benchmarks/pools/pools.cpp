// How long the same work takes this library's pool and others.
//
// The pools take turns, repetition by repetition, so that whatever else the machine does hits all
// of them. Writes JSON; benchmarks/report makes a page of it.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Blocking.h"
#include "Floor.h"
#include "ForkJoin.h"
#include "Futures.h"
#include "Grain.h"
#include "Growth.h"
#include "Latency.h"
#include "Lifecycle.h"
#include "Loops.h"
#include "Ours.h"
#include "Peers.h"
#include "Runner.h"

namespace {

template <typename Measure, typename... Arguments>
std::vector<Contestant> everyPool(const Arguments&... arguments)
{
    return contestants<Measure, CorePool, AsyncPool, TbbPool, AsioPool, QtPool, GlibPool, AprPool,
                       PocoPool, LlvmPool, FloorPool>(arguments...);
}

template <typename Measure, typename... Arguments>
std::vector<Contestant> somePools(const Arguments&... arguments)
{
    return contestants<Measure, CorePool, AsyncPool, AsioPool, QtPool, FloorPool>(arguments...);
}

void grains(Runner& runner, int tasks)
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
                runner.compare({withService ? "W2" : "W1", title, "ns a task"},
                               everyPool<TimeOfGrain>(grain));
            }
        }
    }
}

// A monitor that looks at the pool after every task that has ended suits tasks that block: that is
// what the 1 is.
void blocking(Runner& runner)
{
    const Blocking work = {400, 5};
    using Time = TimeOfBlocking;
    runner.compare(
        {"W3", "as they come, 2 workers at the start", "ms in all"},
        {contestant<Time, CorePool>("libktthread", work, 2, 64, 1),
         contestant<Time, AsyncPool>("libktasync", work, 2, 64),
         contestant<Time, TbbPool>("oneTBB", work, 2),
         contestant<Time, AsioPool>("Boost.Asio", work, 2),
         contestant<Time, QtPool>("QThreadPool", work, 2),
         contestant<Time, GlibPool>("GLib, up to 64", work, 64, false),
         contestant<Time, AprPool>("APR-util, up to 64", work, 2, 64),
         contestant<Time, PocoPool>("Poco", work, 2), contestant<Time, LlvmPool>("LLVM", work, 2),
         contestant<Time, FloorPool>("mutex+condition", work, 2)});
    runner.compare(
        {"W3", "told to have 64 workers", "ms in all"},
        {contestant<Time, CorePool>("libktthread", work, 64, 64, 0),
         contestant<Time, AsyncPool>("libktasync", work, 64, 64),
         contestant<Time, TbbPool>("oneTBB", work, 64),
         contestant<Time, AsioPool>("Boost.Asio", work, 64),
         contestant<Time, QtPool>("QThreadPool", work, 64),
         contestant<Time, GlibPool>("GLib, exclusive", work, 64, true),
         contestant<Time, AprPool>("APR-util", work, 64),
         contestant<Time, PocoPool>("Poco", work, 64), contestant<Time, LlvmPool>("LLVM", work, 64),
         contestant<Time, FloorPool>("mutex+condition", work, 64)});
    const Blocking mixed = {400, 9, 1000};
    runner.compare(
        {"W3", "1 ms of computing and 9 ms of sleep, 2 workers at the start", "ms in all"},
        {contestant<Time, AsyncPool>("libktasync", mixed, 2, 64),
         contestant<Time, GlibPool>("GLib, up to 64", mixed, 64, false),
         contestant<Time, AprPool>("APR-util, up to 64", mixed, 2, 64)});
    const Blocking computing = {400, 0, 2000};
    runner.compare({"W3", "2 ms of computing, most at once", "tasks"},
                   {contestant<MostAtOnce, AsyncPool>("libktasync", computing, 2, 64),
                    contestant<MostAtOnce, GlibPool>("GLib, up to 64", computing, 64, false),
                    contestant<MostAtOnce, AprPool>("APR-util, up to 64", computing, 2, 64)});
}

void own(Runner& runner, int tasks)
{
    runner.compare({"W10", "a future each, asked for", "ns a task"},
                   contestants<TimeOfFutures, KtFutures, StandardFutures>(tasks));
    runner.compare({"W10", "fib(30) by fork and join, cut off at 12", "ms"},
                   contestants<TimeOfForkJoin, KtForkJoin, TbbForkJoin>(Fibonacci{30, 12}));
    for (const int producers : {1, 4}) {
        const Grain grain = {0, tasks, 2, producers, true};
        char title[80];
        std::snprintf(title, sizeof title, "empty tasks with service, observed, %d producer%s",
                      producers, producers == 1 ? "" : "s");
        runner.compare({"W10", title, "ns a task"},
                       {contestant<TimeOfGrain, ObservedPool>("libktasync", grain),
                        contestant<TimeOfGrain, TbbPool>("oneTBB", grain),
                        contestant<TimeOfGrain, AsioPool>("Boost.Asio", grain),
                        contestant<TimeOfGrain, PocoPool>("Poco", grain),
                        contestant<TimeOfGrain, FloorPool>("mutex+condition", grain)});
    }
    runner.compare({"W10", "an idle pool that spins, to a task's first instruction", "us"},
                   {contestant<TimeOfLatency, SpinningPool>("libktasync", Latency{300, false, 0.5}),
                    contestant<TimeOfLatency, TbbPool>("oneTBB", Latency{300, false, 0.5})});
}

void latency(Runner& runner)
{
    for (const bool roundTrip : {false, true}) {
        for (const double percentile : {0.5, 0.99}) {
            const std::string what = roundTrip ? "round trip" : "to a task's first instruction";
            const std::string which = percentile < 0.6 ? "median" : "99th percentile";
            runner.compare({"W4", what + ", " + which, "us"},
                           everyPool<TimeOfLatency>(Latency{300, roundTrip, percentile}));
        }
    }
}

void loops(Runner& runner)
{
    const Elements from(10000000, 1.5);
    Elements to(from.size());
    Elements* const nowhere = nullptr;
    runner.compare(
        {"W5", "sum of 10,000,000 elements", "ms"},
        contestants<TimeOfLoop, KtLoops, TbbLoops, OpenMpLoops, HandSplitLoops>(&from, nowhere));
    runner.compare(
        {"W5", "cheap map over 10,000,000 elements", "ms"},
        contestants<TimeOfLoop, KtLoops, TbbLoops, OpenMpLoops, HandSplitLoops>(&from, &to));
}

void growth(Runner& runner, int tasks)
{
    for (const int queued : {tasks / 100, tasks / 10, tasks, tasks * 10}) {
        runner.compare({"W6", std::to_string(queued) + " tasks queued", "ns a task"},
                       somePools<TimeOfQueue>(queued));
    }
    for (const bool oneByOne : {true, false}) {
        for (const int workers : {2, 8, 32, 128, 512}) {
            runner.compare(
                {"W6",
                 std::to_string(workers) + " workers, " +
                     (oneByOne ? "all but one idle" : "all given work"),
                 "ns a task"},
                somePools<TimeOfWorkers>(workers, oneByOne ? tasks / 50 : tasks / 2, oneByOne));
        }
    }
}

/// In a process of its own for each pool, whose memory nothing else has used before.
void memory(Runner& runner)
{
    runner.compare({"W6", "memory of a worker, resident", "KiB"},
                   somePools<MemoryOfWorker>(256, true));
    runner.compare({"W6", "memory of a worker, virtual", "KiB"},
                   somePools<MemoryOfWorker>(256, false));
    runner.compare({"W6", "memory of a queued task", "bytes"}, somePools<MemoryOfTask>(1000000));
}

void lifecycle(Runner& runner)
{
    runner.compare({"W7", "make, run one task, end", "us a pool"}, everyPool<TimeOfLifecycle>(100));
}

int write(const std::string& text, const std::string& file)
{
    std::ofstream output(file);
    output << text << '\n';
    output.close();
    if (!output) {
        std::cerr << "pools: cannot write " << file << '\n';
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Compares thread pools.", "pools");
    Runner::Options options;
    int tasks = 100000;
    std::string output = "/dev/stdout";
    bool onlyMemory = false;
    app.add_option("--repetitions", options.repetitions, "how often each pool has its turn")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--tasks", tasks, "tasks of the finest grain; the others follow it")
        ->check(CLI::Range(1000, 100000000))
        ->capture_default_str();
    app.add_option("--only", options.only, "only comparisons whose \"W1: title\" this regex finds");
    app.add_option("--pools", options.pools, "only pools whose name this regex finds");
    app.add_option("--output", output, "where the JSON goes; a large pool writes to the console")
        ->capture_default_str();
    app.add_flag("--memory", onlyMemory, "measures memory, and nothing else");
    CLI11_PARSE(app, argc, argv);

    Runner runner(options);
    if (onlyMemory) {
        memory(runner);
    } else {
        grains(runner, tasks);
        blocking(runner);
        latency(runner);
        loops(runner);
        growth(runner, tasks);
        lifecycle(runner);
        own(runner, tasks);
    }
    return write(runner.results().dump(1), output);
}
