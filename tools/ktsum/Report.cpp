#include "Report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

const std::uint32_t steps = 16;

std::size_t bucketOf(std::uint32_t value)
{
    std::uint32_t shift = 0;
    while (value >> shift >= 2 * steps) {
        ++shift;
    }
    return value < steps ? value : shift * steps + (value >> shift);
}

/// The greatest value in a bucket.
double upperBound(std::size_t bucket)
{
    if (bucket < 2 * steps) {
        return static_cast<double>(bucket);
    }
    const std::size_t shift = bucket / steps - 1;
    return std::ldexp(static_cast<double>(bucket - shift * steps + 1), static_cast<int>(shift)) - 1;
}

std::string number(const char* format, double value)
{
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

std::string formatBytes(double bytes)
{
    const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    std::size_t unit = 0;
    while (bytes >= 1024 && unit < 4) {
        bytes /= 1024;
        ++unit;
    }
    return number(unit == 0 || bytes >= 100 ? "%.0f " : "%.1f ", bytes) + units[unit];
}

std::string formatSeconds(double seconds)
{
    if (seconds < 1e-3) {
        return number("%.0f us", seconds * 1e6);
    }
    if (seconds < 1) {
        return number("%.1f ms", seconds * 1e3);
    }
    if (seconds < 60) {
        return number("%.2f s", seconds);
    }
    const double minutes = std::floor(seconds / 60);
    return number("%.0f min ", minutes) + number("%.0f s", std::floor(seconds - 60 * minutes));
}

void WaitingTimes::add(std::int32_t microseconds)
{
    const std::int32_t time = std::max(microseconds, 0);
    ++counts[bucketOf(static_cast<std::uint32_t>(time))];
    ++total;
    most = std::max(most, time);
}

double WaitingTimes::quantile(double part) const
{
    const double wanted = part * static_cast<double>(total);
    std::uint64_t seen = 0;
    for (std::size_t bucket = 0; bucket < counts.size(); ++bucket) {
        seen += counts[bucket];
        if (seen > 0 && static_cast<double>(seen) >= wanted) {
            return std::min(upperBound(bucket), static_cast<double>(most));
        }
    }
    return 0;
}

std::string formatReport(const RunFigures& figures)
{
    const auto waited = [](double microseconds) { return formatSeconds(microseconds / 1e6); };
    const double rate =
        figures.seconds > 0 ? static_cast<double>(figures.bytes) / figures.seconds : 0;
    return "tasks:      " + std::to_string(figures.tasks) + "\n" +
           "bytes:      " + std::to_string(figures.bytes) + " (" +
           formatBytes(static_cast<double>(figures.bytes)) + ")\n" +
           "wall time:  " + formatSeconds(figures.seconds) + "\n" +
           "throughput: " + formatBytes(rate) + "/s\n" +
           "workers:    " + std::to_string(figures.mostWorkers) + " at most\n" +
           "waiting:    " + waited(figures.waiting.quantile(0.5)) + " median, " +
           waited(figures.waiting.quantile(0.95)) + " 95th percentile, " +
           waited(figures.waiting.longest()) + " longest\n";
}
