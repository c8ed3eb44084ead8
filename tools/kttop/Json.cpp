#include "Json.h"

#include <cmath>

#include <nlohmann/json.hpp>

using json = nlohmann::ordered_json;

namespace {

/// To a thousandth: the rest of the digits would only be noise.
double rounded(double number)
{
    return std::round(number * 1000) / 1000;
}

json known(bool isKnown, double number)
{
    return isKnown ? json(rounded(number)) : json();
}

json asJson(const Worker& worker)
{
    const WorkerReading& reading = worker.reading;
    const bool hasTask =
        reading.state == WorkerState::running || reading.state == WorkerState::finished;
    return {{"tid", reading.tid},
            {"state", nameOf(reading.state)},
            {"task", hasTask ? json(reading.task) : json()},
            {"pool", reading.pool.empty() ? json() : json(reading.pool)},
            {"state_seconds", rounded(worker.stateSeconds)},
            {"state_seconds_is_minimum", worker.sinceBefore},
            {"cpu_percent", known(worker.hasRates, worker.cpuPercent)},
            {"cpu_seconds", rounded(static_cast<double>(reading.cpuNs) / 1e9)},
            {"wait_percent", known(worker.hasRates && reading.waitNs, worker.waitPercent)},
            {"voluntary_per_second", known(worker.hasSwitchRates, worker.voluntaryRate)},
            {"involuntary_per_second", known(worker.hasSwitchRates, worker.involuntaryRate)},
            {"kernel_state", std::string(1, reading.kernelState)},
            {"waits_in", reading.waitsIn.empty() ? json() : json(reading.waitsIn)}};
}

json asJson(const Counts& counts)
{
    return {{"workers", counts.workers},   {"running", counts.running},
            {"sleeping", counts.sleeping}, {"idle", counts.idle},
            {"new", counts.fresh},         {"other_threads", counts.otherThreads}};
}

}  // namespace

std::string asLine(const json& value)
{
    const bool onlyAscii = true;
    return value.dump(-1, ' ', onlyAscii, json::error_handler_t::replace);
}

std::string asJson(const ProcessIdentity& process, const Snapshot& snapshot)
{
    json workers = json::array();
    for (const Worker& worker : snapshot.workers) {
        workers.push_back(asJson(worker));
    }
    json tasks = json::array();
    for (const SeenTask& seen : snapshot.tasks) {
        tasks.push_back({{"task", seen.task},
                         {"looks", seen.looks},
                         {"percent", rounded(100 * static_cast<double>(seen.looks) /
                                             static_cast<double>(snapshot.taskLooks))}});
    }
    return asLine({{"kttop", "sample"},
                   {"version", 1},
                   {"pid", process.pid},
                   {"name", process.name},
                   {"clock_ms", snapshot.wallClockMs},
                   {"seconds_between_readings", rounded(snapshot.secondsBetween)},
                   {"samples", snapshot.moments.size()},
                   {"counts", asJson(snapshot.counts)},
                   {"cpu_percent", rounded(snapshot.cpuPercent)},
                   {"workers", std::move(workers)},
                   {"tasks", std::move(tasks)}});
}
