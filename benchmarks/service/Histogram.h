/// How long requests took.
#pragma once

#include <cstdint>
#include <vector>

/// Counts values in buckets whose width is below 1 % of what is in them: 128 a power of two, and
/// one a value below 128. Values from 2^40 - 1 on count as that: 12 days, in microseconds. It
/// belongs to one thread.
class Histogram {
public:
    /// A negative value counts as 0. Doesn't allocate once a value as large has been recorded.
    void record(std::int64_t value);

    std::int64_t count() const { return all; }

    /// The least value recorded than which at least `share` of all are no larger, or one above it
    /// by less than 1 %, and no more than the largest. 0 without any.
    ///
    /// \param share  0 to 1
    std::int64_t quantile(double share) const;

private:
    std::vector<std::int64_t> counts;
    std::int64_t all = 0;
    std::int64_t largest = 0;
};
