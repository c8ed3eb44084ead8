/// How many workers a pool may have, by what its header says.
#pragma once

#include <set>
#include <utility>

/// The numbers of workers, and of retirements still to come, that a pool may have at the moment.
/// A worker retires at a moment of its own choice, so several pairs are possible until the pool's
/// status is read.
class Sizes {
public:
    Sizes(int threads, int maxThreads);

    // Each takes the pool's answer, and returns false if the pool can't have given it.
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
