#include "Histogram.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

const int stepBits = 7;
const std::int64_t steps = std::int64_t(1) << stepBits;  ///< a power of two
const std::int64_t most = (std::int64_t(1) << 40) - 1;

/// By which power of two the values of its bucket are divided: 0 for those below 2 * `steps`.
int shiftOf(std::int64_t value)
{
    int shift = 0;
    while ((value >> shift) >= 2 * steps) {
        ++shift;
    }
    return shift;
}

std::size_t bucketOf(std::int64_t value)
{
    const int shift = shiftOf(value);
    return static_cast<std::size_t>(shift * steps + (value >> shift));
}

std::int64_t lastOf(std::size_t bucket)
{
    const auto index = static_cast<std::int64_t>(bucket);
    if (index < 2 * steps) {
        return index;
    }
    const std::int64_t shift = index / steps - 1;
    return ((index - shift * steps + 1) << shift) - 1;
}

}  // namespace

void Histogram::record(std::int64_t value)
{
    const std::int64_t counted = std::clamp<std::int64_t>(value, 0, most);
    const std::size_t bucket = bucketOf(counted);
    if (counts.size() <= bucket) {
        counts.resize(bucket + 1);
    }
    ++counts[bucket];
    ++all;
    largest = std::max(largest, counted);
}

std::int64_t Histogram::quantile(double share) const
{
    const auto wanted = std::max<std::int64_t>(
        1, static_cast<std::int64_t>(std::ceil(share * static_cast<double>(all))));
    std::int64_t seen = 0;
    for (std::size_t bucket = 0; bucket < counts.size(); ++bucket) {
        seen += counts[bucket];
        if (seen >= wanted) {
            return std::min(lastOf(bucket), largest);
        }
    }
    return largest;
}
