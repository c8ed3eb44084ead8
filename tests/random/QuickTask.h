/// Tasks that use the library as clients' tasks do, and end soon.
#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <ktthread/ktthread.h>

class QuickTask;
using Quick = boost::shared_ptr<QuickTask>;

/// What all tasks of a program share. Any thread may use it.
struct TaskSurroundings {
    boost::shared_ptr<KT::KTThreadPool> pool;
    std::mutex mutex;
    std::vector<Quick> all;
    std::vector<const QuickTask*> begun;  ///< in the order of their starts

    Quick newTask(int owner, int kind);
};

/// Counts what happens to it. Its owner, a client or another task, queues it.
class QuickTask : public KT::KTTask {
public:
    /// `kind` (0 to 255) chooses what the body does.
    QuickTask(TaskSurroundings& around, int owner, int kind);

    void run() override;
    void exitTask() override;

    const int owner;
    std::atomic<int> accepted{0};   ///< times that enqueue said it took it
    std::atomic<int> uncertain{0};  ///< times it was in a batch with an empty pointer
    std::atomic<int> taken{0};      ///< times a client took it out of the queue
    std::atomic<int> starts{0};
    std::atomic<int> ends{0};

private:
    void doWork();
    void queueAnother();
    void linger();

    TaskSurroundings& around;
    const int kind;
    std::atomic<bool> mustExit{false};
};
