/// Figures for people: units, and how long tasks waited.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// "1.5 GiB"; "999 B".
std::string formatBytes(double bytes);

/// "3.2 ms"; "1 min 5 s".
std::string formatSeconds(double seconds);

/// How long tasks waited, in room that doesn't grow with their number: 16 counters for each power
/// of two, so that a quantile is off by at most a sixteenth.
class WaitingTimes {
public:
    /// A negative time, as of a wait beyond the task's clock, counts as 0.
    void add(std::int32_t microseconds);

    /// The time in microseconds that the given part (0 to 1) of the tasks waited at most; 0 without
    /// any task.
    double quantile(double part) const;

    double longest() const { return most; }

private:
    std::array<std::uint64_t, 29 * 16> counts{};
    std::uint64_t total = 0;
    std::int32_t most = 0;
};

struct RunFigures {
    std::uint64_t tasks = 0;
    std::uint64_t bytes = 0;
    double seconds = 0;
    int mostWorkers = 0;
    WaitingTimes waiting;
};

/// The lines of --report.
std::string formatReport(const RunFigures& figures);
