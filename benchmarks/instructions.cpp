// instructions TASKS: queues so many tasks on a pool whose one worker is kept waiting, lets it work
// them off, and ends. No two threads run at once, so a count of its instructions can be repeated:
// benchmarks/count-instructions makes it.
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <utility>

#include <boost/shared_ptr.hpp>

#include <ktthread/ktthread.h>

namespace {

class Gate {
public:
    void open()
    {
        const std::lock_guard<std::mutex> hold(mutex);
        isOpen = true;
        opened.notify_all();
    }
    void pass()
    {
        std::unique_lock<std::mutex> hold(mutex);
        opened.wait(hold, [this] { return isOpen; });
    }

private:
    std::mutex mutex;
    std::condition_variable opened;
    bool isOpen = false;
};

struct Call : KT::KTTask {
    explicit Call(std::function<void()> toDo) : body(std::move(toDo)) {}
    void run() override { body(); }
    std::function<void()> body;
};

struct Empty : KT::KTTask {
    void run() override {}
};

void enqueue(KT::KTThreadPool& pool, KT::KTTask* task)
{
    if (!pool.enqueue(boost::shared_ptr<KT::KTTask>(task))) {
        std::fprintf(stderr, "instructions: a task was refused\n");
        std::exit(1);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const int tasks = argc == 2 ? std::atoi(argv[1]) : 0;
    if (tasks < 1) {
        std::fprintf(stderr, "instructions: give a number of tasks\n");
        return 2;
    }
    const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(1, 1, 0, 0, 0);
    Gate entered;
    Gate start;
    Gate end;
    enqueue(*pool, new Call([&] {
        entered.open();
        start.pass();
    }));
    pool->wake();
    entered.pass();
    for (int i = 0; i < tasks; ++i) {
        enqueue(*pool, new Empty);
    }
    enqueue(*pool, new Call([&] { end.open(); }));
    start.open();
    end.pass();
    return pool->close() ? 0 : 1;
}
