/// The core by itself: a task is an object, and who enqueues it waits for it.
///
/// Prints:
///     hello, world
///     hello, pool
#include <chrono>
#include <cstdio>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <ktthread/ktthread.h>

struct Greet : KT::KTTask {
    explicit Greet(std::string name) : who(std::move(name)) { setTaskName("greet"); }

    // On a worker's thread, which is called "KTTask: greet [running]" meanwhile.
    void run() override { greeting.set_value("hello, " + who); }

    std::string who;
    std::promise<std::string> greeting;
};

int main()
{
    using namespace std::chrono_literals;
    // 2 workers to start with, up to 8; the monitor looks after every 10th task.
    const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(2, 8, 10, 0, 0));
    pool->init(2, 8, 10, 0, 0);

    std::vector<std::future<std::string>> greetings;
    for (const char* who : {"world", "pool"}) {
        const auto task = boost::make_shared<Greet>(who);
        greetings.push_back(task->greeting.get_future());
        pool->enqueue(task);
    }
    for (std::future<std::string>& greeting : greetings) {
        // A wake-up may be lost on its way to a worker: the waiter repeats it.
        while (greeting.wait_for(10ms) != std::future_status::ready) {
            pool->wake();
        }
        std::printf("%s\n", greeting.get().c_str());
    }
    return pool->close() ? 0 : 1;
}
