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
class CurrentWork {
public:
    /// False if a stop was requested: `work` is not noted then.
    bool begin(Work& work);
    /// Blocks for as long as a stop request is at the work.
    void end();

    /// Asks the work, if there is any, and keeps others from beginning.
    void requestStop();
    bool isStopped() const { return (word & stopped) != 0; }

    /// The work, which doesn't end before `release`; null if there is none.
    Work* hold();
    /// `requestStop` in two steps: the work that is to be asked, which doesn't end before
    /// `release`; null if there is none.
    Work* stopAndHold();
    void release();

private:
    std::uintptr_t notHeld() const;

    // In the low bits of the address.
    static constexpr std::uintptr_t stopped = 1;
    static constexpr std::uintptr_t held = 2;

    std::atomic<std::uintptr_t> word{0};
};

}  // namespace detail
}  // namespace KT
