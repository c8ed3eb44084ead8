#include "Sparkline.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

const std::size_t levels = 8;
const std::array<const char*, levels> blocks = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
const std::array<const char*, levels> letters = {"_", ".", ":", "-", "=", "+", "*", "#"};

std::size_t levelOf(double value, double top)
{
    if (value <= 0 || top <= 0) {
        return 0;
    }
    const double share = std::min(value / top, 1.0);
    return std::max<std::size_t>(
        1, static_cast<std::size_t>(std::lround(share * static_cast<double>(levels - 1))));
}

std::uint64_t samplesPerColumn(std::size_t samples, std::size_t columns)
{
    std::uint64_t together = 1;
    while (together * columns < samples) {
        together *= 2;
    }
    return together;
}

void keepLast(std::vector<double>& values, std::size_t count)
{
    if (values.size() > count) {
        values.erase(values.begin(), values.end() - static_cast<std::ptrdiff_t>(count));
    }
}

}  // namespace

std::string sparkline(const std::vector<double>& values, double top, bool utf8)
{
    std::string line;
    for (const double value : values) {
        line += (utf8 ? blocks : letters).at(levelOf(value, top));
    }
    return line;
}

HistoryLine historyLine(const std::deque<Moment>& moments, std::size_t columns)
{
    HistoryLine line;
    if (moments.empty() || columns == 0) {
        return line;
    }
    const std::uint64_t together = samplesPerColumn(moments.size(), columns);
    double count = 0;
    for (std::size_t i = 0; i < moments.size(); ++i) {
        const Moment& moment = moments[i];
        if (i == 0 || moment.number % together == 0) {
            line.running.push_back(0);
            line.sleeping.push_back(0);
            count = 0;
        }
        ++count;
        line.running.back() += (moment.counts.running - line.running.back()) / count;
        line.sleeping.back() += (moment.counts.sleeping - line.sleeping.back()) / count;
        line.top = std::max(line.top, static_cast<double>(moment.counts.workers));
    }
    keepLast(line.running, columns);
    keepLast(line.sleeping, columns);
    line.seconds = static_cast<double>(moments.back().atNs - moments.front().atNs) / 1e9;
    return line;
}
