/// The thread that looks after the pools.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>

#include <boost/intrusive/list.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktthread/KTPoolExtension.h>
#include <ktthread/annotations.h>

namespace KT {
namespace detail {

using Time = std::chrono::steady_clock;

/// What the clock looks at.
class Watched : public KTPoolExtension {
public:
    static constexpr Time::time_point never = Time::time_point::max();

    /// A look, on the clock's thread, one at a time. Throws nothing.
    ///
    /// \return  when the next one is due; `never`: not until somebody calls Clock::watch
    virtual Time::time_point look(Time::time_point now) = 0;

private:
    friend class Clock;
    // The clock's: a list of its own would need memory.
    boost::intrusive::list_member_hook<> hook;
    Time::time_point due = never;
};

/// One thread a process, named "KTClock": made when there is first something to watch, asleep while
/// no look is due. Any thread may use it. A forked child gets one of its own when it needs one.
class Clock {
public:
    /// Never destroyed: pools may be used until the process is gone.
    static Clock& instance();

    /// Has `what` looked at when `after` has passed, or before. Where no thread can be made, the
    /// looks wait for a call that can make one. Throws nothing.
    void watch(Watched& what, Time::duration after);

private:
    using List = boost::intrusive::list<
        Watched, boost::intrusive::member_hook<Watched, boost::intrusive::list_member_hook<>,
                                               &Watched::hook>>;

    Clock() = default;
    static void lockBeforeFork() KT_NOT_ANALYSED;
    static void unlockAfterFork() KT_NOT_ANALYSED;
    static void renewInChild() KT_NOT_ANALYSED;
    static void* run(void* self);
    void startLocked();
    Time::time_point firstDueLocked() const;
    Watched* takeDueLocked(Time::time_point now);
    void lookAtDue();
    void lookAt(Watched& watched);

    std::mutex mutex;
    List watched;                 ///< under `mutex`; each holds a reference
    bool isRunning = false;       ///< under `mutex`
    std::atomic<int> changes{0};  ///< the thread sleeps on it; counted under `mutex`
};

}  // namespace detail
}  // namespace KT
