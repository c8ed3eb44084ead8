/// How many carriers a pool should have.
#pragma once

#include <cstddef>

namespace KT {
namespace detail {

/// What a look at a pool's carriers found.
struct CarrierCensus {
    int carriers;           ///< at work
    int sampled;            ///< of those, that were looked at
    int runnable;           ///< of those, that compute or wait for a processor
    std::size_t queued;     ///< work that waits for a carrier
    bool isEnough = false;  ///< no processor is free, and all work ends soon all the same
};

/// The processors are best used with processors / (share of its time that a carrier isn't blocked)
/// carriers: as many compute then as there are processors; some more make up for chance. A carrier
/// that waits for a processor isn't blocked, so more of them are no gain. The share is that of two
/// looks in a row, since a single look may find a computing thread in a short wait.
///
/// Carriers that are blocked for moments only, while others use the processors, look like those of
/// tasks that block. There more carriers cost switches between threads, and nothing else changes:
/// then the number falls.
///
/// The number grows at once, for blocked tasks gain nothing by waiting, and falls slowly: with too
/// many carriers they wait for processors, which makes the share larger than it is.
class Concurrency {
public:
    /// Never less than `least`, nor more than `most`.
    Concurrency(int least, int most, int processors);

    int target() const { return aim; }
    /// As after construction: the pool is idle.
    void reset();
    /// Takes a look into account.
    void add(const CarrierCensus& census);

private:
    void fallTo(int better);
    int wanted(const CarrierCensus& census, double runnableShare) const;

    const int least;
    const int most;
    const int processors;
    int aim;
    double shareBefore = 1;
};

}  // namespace detail
}  // namespace KT
