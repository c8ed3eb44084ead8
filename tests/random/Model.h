/// What a pool with one client does, told by its header: the exact reference of random programs.
#pragma once

#include <deque>
#include <vector>

#include <ktthread/ktthread.h>

#include "HeldTask.h"
#include "Program.h"
#include "Sizes.h"

/// The pool as it must be when it has come to rest: each worker in a task, or without one left.
/// An empty pointer in the queue is taken as a task is, and costs its worker a turn.
class Model {
public:
    explicit Model(const Setup& setup);

    /// Whether init must succeed; it has been called then.
    bool init();

    /// What enqueue must answer.
    bool enqueue(const std::vector<Held>& batch);
    bool wake() const { return !queue.empty(); }
    Held take();
    void reportEnd();
    void release(std::size_t index);
    void stop();
    void stopByForce();
    void close();
    bool join() const { return !sizes.runs(); }

    /// Whether the pool's figures are those that it must have at rest.
    bool isAtRest(const KT::KTThreadPoolStatus& status) const;

    /// Makes the pool's figures at rest the model's.
    void settle(const KT::KTThreadPoolStatus& status);

    Sizes sizes;
    std::deque<Held> queue;
    std::vector<Held> running;
    bool isInitialised = false;

private:
    struct Rest {
        std::vector<Held> taken;  ///< by workers who had none
        std::size_t fromQueue;
    };
    Rest restWith(int threads) const;
    void countEnds(int count);

    const Setup setup;
    bool hasMonitor = false;
    int endedTasks = 0;  ///< since the monitor's last look on their account
    std::vector<Held> stopping;
    int cutOff = 0;  ///< workers that stay counted as busy
};
