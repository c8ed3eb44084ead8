/// The carriers that wait for work.
#pragma once

#include <atomic>

#include "../base/BriefMutex.h"
#include "Runner.h"

namespace KT {
namespace detail {

/// The last one to wait is called first, while its memory is still in the processor's caches. Who
/// takes a runner out owes it a call. Any thread may use it.
class IdleRunners {
public:
    void add(Runner& runner);
    /// False if another thread has taken it out, which then calls it.
    bool remove(Runner& runner);
    /// Calls one to leave, if there is one.
    void callOneToLeave();
    /// Calls those to leave that have waited for `patience` since an earlier call of this one found
    /// them.
    void callPatientToLeave(Time::time_point now, Time::duration patience);
    /// Calls one to work, unless there is none: false then. Adds it to `searching`, and never
    /// anything else, not even for a moment: others would rely on a search that nobody makes.
    bool callOneToWork(std::atomic<int>& searching);
    /// Calls that one, if it waits.
    void callTo(Runner& runner, int call);

    /// Ordered with the other sequentially consistent accesses.
    int size() const { return count; }

private:
    Runner* takeOneLocked();
    static void deliver(Runner& runner, int call);

    BriefMutex mutex;
    Runner* top = nullptr;  ///< under `mutex`
    std::atomic<int> count{0};
};

}  // namespace detail
}  // namespace KT
