// http-load PORT: makes requests to the service on that port of 127.0.0.1, checks that each is
// answered once, with its own body, and prints what came of it as JSON.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "Load.h"

namespace {

double milliseconds(std::int64_t us)
{
    return static_cast<double>(us) / 1000;
}

nlohmann::json latencies(const Histogram& of)
{
    return {{"count", of.count()},
            {"p50_ms", milliseconds(of.quantile(0.5))},
            {"p90_ms", milliseconds(of.quantile(0.9))},
            {"p99_ms", milliseconds(of.quantile(0.99))},
            {"p99.9_ms", milliseconds(of.quantile(0.999))},
            {"max_ms", milliseconds(of.quantile(1))}};
}

/// When the first one, and each percent of all, was answered.
std::vector<double> progress(const std::vector<std::int64_t>& answers)
{
    std::vector<double> at;
    for (std::size_t percent = 0; percent <= 100 && !answers.empty(); ++percent) {
        at.push_back(milliseconds(answers[percent * (answers.size() - 1) / 100]));
    }
    return at;
}

nlohmann::json toJson(const Outcome& outcome)
{
    const double seconds = static_cast<double>(outcome.elapsed) / 1e6;
    const auto answered = static_cast<double>(outcome.answers.size());
    int errors = 0;
    for (const auto& [what, count] : outcome.errors) {
        errors += count;
    }
    return {{"blocking", latencies(outcome.blocking)},
            {"others", latencies(outcome.others)},
            {"answered", outcome.answers.size()},
            {"errors", errors},
            {"error_kinds", outcome.errors},
            {"requests_per_s", seconds > 0 ? answered / seconds : 0},
            {"elapsed_ms", milliseconds(outcome.elapsed)},
            {"progress_ms", progress(outcome.answers)}};
}

/// A burst has a socket for each request.
void allowManySockets()
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    int port = 0;
    Mix mix;
    Pace pace;
    std::uint32_t seed = 1;
    double seconds = 1;
    double patience = 60;
    CLI::App options("Makes requests to a service on 127.0.0.1, one a connection.");
    options.add_option("port", port, "port")->required();
    options.add_option("--clients", pace.clients, "connections at a time");
    options.add_option("--rate", pace.rate, "requests a second; 0: as fast as answers come");
    options.add_option("--seconds", seconds, "in which requests become due");
    options.add_option("--burst", pace.burst, "so many requests at once, instead");
    options.add_option("--patience", patience, "seconds without an answer until it gives up");
    options.add_option("--blocking-share", mix.blockingShare, "of the requests, 0 to 1");
    options.add_option("--least-ms", mix.leastMs, "that these block for");
    options.add_option("--most-ms", mix.mostMs, "the same");
    options.add_option("--file", mix.file, "to ask the sum of");
    options.add_option("--sum", mix.sum, "its sum");
    options.add_option("--seed", seed, "of the requests");
    CLI11_PARSE(options, argc, argv);
    pace.span = std::chrono::duration<double>(seconds);
    pace.patience = std::chrono::duration<double>(patience);
    allowManySockets();
    try {
        Plan plan(mix, seed);
        const Outcome outcome = Load(port, plan, pace).run();
        std::printf("%s\n", toJson(outcome).dump().c_str());
        return outcome.errors.empty() ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "http-load: %s\n", error.what());
        return 2;
    }
}
