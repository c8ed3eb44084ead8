/// The work that a thread is at.
#pragma once

#include <atomic>
#include <cstdint>

#include <ktasync/detail/Work.h>

namespace KT {
namespace detail {

/// One word, so that a stop request reaches the work that runs, or keeps the next one from
/// beginning, and never touches one that has ended. One thread begins and ends work; any other may
/// request a stop.
///
/// Until the first work begins or a stop is requested it can hold a number: a job has no room for
/// another field.
class CurrentWork {
public:
    /// Whom a stop request is meant for.
    enum class Stop : std::uintptr_t {
        ofTask = 1,    ///< the work that this is part of: what it runs next begins all the same
        ofThread = 3,  ///< all that the thread runs: no other work begins
    };

    CurrentWork() = default;
    /// \param numberToHold  uses all but four bits; 0: none
    explicit CurrentWork(std::uintptr_t numberToHold)
        : word(numberToHold == 0 ? 0 : numberToHold << usedBits | isNumber)
    {
    }

    /// 0 if there is none, or no more.
    std::uintptr_t number() const
    {
        const std::uintptr_t now = word;
        return (now & isNumber) != 0 ? now >> usedBits : 0;
    }

    /// False if the thread was asked to stop: `work` is not noted then.
    bool begin(Work& work);
    /// Blocks for as long as a stop request is at the work.
    void end();

    /// Asks the work, if there is any, and keeps others from beginning.
    void requestStop();
    bool isStopped(Stop stop = Stop::ofThread) const { return has(word, stop); }

    /// The work, which doesn't end before `release`; null if there is none.
    Work* hold();
    /// A stop request in two steps: the work that is to be asked, which doesn't end before
    /// `release`; null if there is none, or was asked that before.
    Work* stopAndHold(Stop stop);
    void release();

private:
    // In the low bits of the address, besides those of Stop.
    static constexpr std::uintptr_t held = 4;
    static constexpr std::uintptr_t isNumber = 8;
    static constexpr int usedBits = 4;
    static constexpr std::uintptr_t bitsOf(Stop stop) { return static_cast<std::uintptr_t>(stop); }
    static constexpr std::uintptr_t allStops = 3;
    static_assert(alignof(Work) >= 1U << usedBits, "addresses leave these bits free");

    static Work* workIn(std::uintptr_t now);
    std::uintptr_t notHeld() const;
    static bool has(std::uintptr_t now, Stop stop) { return (now & bitsOf(stop)) == bitsOf(stop); }

    std::atomic<std::uintptr_t> word{0};
};

}  // namespace detail
}  // namespace KT
