/// A random program of a single client, compared with the model step by step.
#pragma once

#include <vector>

#include "LockBench.h"
#include "Model.h"
#include "Program.h"

class OneClient {
public:
    /// Throws a Finding, once the pool is closed, if anything is not as the model has it. The
    /// process has no other pools meanwhile.
    static void run(const Program& program);

private:
    using Pool = boost::shared_ptr<KT::KTThreadPool>;

    explicit OneClient(const Setup& setup);
    void go(const std::vector<Step>& steps);
    void finish();
    void letGo();

    bool isForNow(const Step& step, std::size_t steps) const;
    void init();
    void settle();
    void act(const Step& step);
    void actOnPool(const Step& step);
    void enqueue(const Step& step);
    void enqueueEmpty();
    void enqueueBatch(const Step& step);
    void enqueueAgain(const Step& step);
    void enqueueAll(const std::vector<Held>& batch);
    void release(const Step& step);
    void adjust(const Step& step);
    void increase();
    void look();
    void take();
    void reportEnd(const Step& step);
    void stop(bool force);
    void afterStop(bool force, const std::vector<Held>& asked);
    void join(const Step& step);
    void close(bool force);
    void handleTask(const Step& step);
    void awaitEnded();
    Held newTask(int manner);

    const Setup setup;
    std::size_t position = 0;  ///< of the step, from 1
    Model model;
    Pool pool;
    LockBench locks;
    std::vector<Held> all;
    std::vector<Held> ended;  ///< in the client's hands again
};
