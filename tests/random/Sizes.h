/// How many workers a pool may have, by what its header says.
#pragma once

#include <set>
#include <utility>

/// The numbers of workers, and of retirements still to come, that a pool may have at the moment.
/// Who retires does so some time, so there may be more than one pair, until the pool is looked at.
class Sizes {
public:
    Sizes(int threads, int maxThreads);

    // Each takes what the pool answered. False: it can't have.
    bool adjusted(int delta, bool answer);
    bool increased(bool answer);
    bool observed(int threads, int toRemove);

    /// The monitor looked while at least and at most so many workers were busy.
    void looked(int leastBusy, int mostBusy);
    void stopped();

    /// Whether the pool counts workers.
    bool runs() const { return possible.begin()->first >= 1; }
    bool mayBe(int threads, int toRemove) const { return possible.count({threads, toRemove}) > 0; }

private:
    using Pair = std::pair<int, int>;  ///< workers, retirements still to come
    using Pairs = std::set<Pair>;

    Pair grown(Pair from, int count) const;
    void letRetire();
    bool narrow(Pairs found);

    int maxThreads;
    Pairs possible;
};
