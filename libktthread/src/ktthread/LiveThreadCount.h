#pragma once

#include <atomic>

#include <sys/types.h>

#include <boost/shared_ptr.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include <ktthread/KTCondition.h>
#include <ktthread/KTMutex.h>

namespace KT {

/// Counts the threads that a pool has started and that have not ended; join waits until none is
/// left. The pool, its workers and their threads share it; the last of them destroys it. Any thread
/// may use it.
class KTLiveThreadCount
    : public boost::intrusive_ref_counter<KTLiveThreadCount, boost::thread_safe_counter> {
public:
    KTLiveThreadCount();

    void add();
    void remove();

    /// Whether this process is a forked child of the one that started the threads: they don't exist
    /// here, and locks that they held at the fork stay locked.
    bool inForkedChild() const;

    /// Blocks until there are none, or for at most `milliseconds`. Returns whether there are none.
    /// A cancellation point.
    bool waitForNone(int milliseconds);

    /// The count that includes the calling thread; null on a thread that is no worker.
    static const KTLiveThreadCount* ofThisThread();
    /// For a thread that no count includes, and that one of the count waits for.
    static void countThisThreadAs(const KTLiveThreadCount* count);

private:
    boost::shared_ptr<KTMutex> mutex;
    boost::shared_ptr<KTCondition> ended;
    int count;  // under mutex
    std::atomic<pid_t> process;
};

namespace core {

/// The first object made on a worker's thread, which was added to the count before it was created.
/// It removes the thread from the count once the thread has ended: after its start routine and the
/// destructors of its thread-local objects. If the process has no thread-specific keys left, it
/// does so when the start routine ends.
class LiveThread {
public:
    /// \param count  null: the thread is in no count
    explicit LiveThread(boost::intrusive_ptr<KTLiveThreadCount> count);
    ~LiveThread();
    LiveThread(const LiveThread&) = delete;
    LiveThread& operator=(const LiveThread&) = delete;

private:
    boost::intrusive_ptr<KTLiveThreadCount> threads;
};

}  // namespace core
}  // namespace KT
