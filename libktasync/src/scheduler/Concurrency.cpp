#include "Concurrency.h"

#include <algorithm>

namespace KT {
namespace detail {

namespace {

/// A target that is too high falls by this part of the excess with each look, and by one at least.
const int slowness = 16;

/// Carriers that compute or wait for a processor, for each processor: with fewer of them it falls
/// no further, since some processor would soon have nothing to do.
const int toleratedPerProcessor = 4;

}  // namespace

Concurrency::Concurrency(int atLeast, int atMost, int numberOfProcessors)
    : least(atLeast), most(atMost), processors(numberOfProcessors), aim(atLeast)
{
}

void Concurrency::reset()
{
    aim = least;
    shareBefore = 1;
}

int Concurrency::wanted(const CarrierCensus& census, double runnableShare) const
{
    // Work that isn't there needs no carriers.
    const double useful = census.carriers + static_cast<double>(census.queued);
    // Up to half as many again: blocked tasks come back unevenly, and a processor that waits for
    // one is lost.
    const double reserve = 1 + std::max(0.5 - runnableShare, 0.0);
    const double ideal = runnableShare > 0 ? processors / runnableShare * reserve : useful;
    return static_cast<int>(std::min({ideal, useful, static_cast<double>(most)}));
}

void Concurrency::fallTo(int better)
{
    if (better < aim) {
        aim -= std::max((aim - better) / slowness, 1);
    }
}

void Concurrency::add(const CarrierCensus& census)
{
    if (census.sampled < 1) {
        return;
    }
    const double share = static_cast<double>(census.runnable) / census.sampled;
    const double both = (share + shareBefore) / 2;
    shareBefore = share;
    if (census.isEnough) {
        fallTo(least);
        return;
    }
    const int better = std::max(wanted(census, both), least);
    if (better >= aim) {
        aim = better;
    } else if (share * census.carriers > toleratedPerProcessor * processors) {
        fallTo(better);
    }
}

}  // namespace detail
}  // namespace KT
