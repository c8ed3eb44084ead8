/// A task that runs until it is released.
#pragma once

#include <atomic>

#include <boost/shared_ptr.hpp>

#include <ktthread/ktthread.h>

/// Its body waits for release() or exitTask(). The counters may be read by any thread.
class HeldTask : public KT::KTTask {
public:
    /// The lowest bits of `manner`: stamps itself, fails with a KTError, is released early.
    explicit HeldTask(int manner);

    void run() override;
    void exitTask() override;
    void release();

    /// Makes a task that has ended fit to be queued once more.
    void holdAgain();

    /// Puts stamps into the task that no clock would give.
    void setStamps(ro::os::timeval created, ro::os::timeval executed, ro::os::timeval ended);

    std::atomic<int> starts{0};
    std::atomic<int> ends{0};   ///< times the body came to its end
    std::atomic<int> lefts{0};  ///< times the body was left, in whatever way
    int expectedStarts = 0;     ///< the model's

private:
    const int manner;
    std::atomic<bool> released{false};
    const boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
    const boost::shared_ptr<KT::KTCondition> wakeUp = KT::KTCondition::createKTCondition();
};

using Held = boost::shared_ptr<HeldTask>;
