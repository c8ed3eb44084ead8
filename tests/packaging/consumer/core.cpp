// A client of the core, which says with which versions it was built and runs.
#include <atomic>
#include <cstdio>

#include <boost/make_shared.hpp>

#include <ktthread/ktthread.h>

namespace {

std::atomic<bool> ran(false);

struct Hello : KT::KTTask {
    void run() override { ran = true; }
};

}  // namespace

int main()
{
    const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(1, 1, 1, 0, 0));
    pool->init(1, 1, 1, 0, 0);
    pool->enqueue(boost::make_shared<Hello>());
    while (!ran) {
        pool->wake();
        ro::os::msleep(1);
    }
    std::printf("built with %s, runs with %s\n", KT_VERSION, KT::getVersion());
    return pool->close() ? 0 : 1;
}
