#include <cstdio>

#include <boost/make_shared.hpp>

#include <ktasync/ktasync.h>
#include <kterror/KTError.h>
#include <ktthread/ktthread.h>

struct Failing : KT::KTTask {
    void run() override { throw KT::KTError("client", "run", "as it should", "", 0); }
};

int main()
{
    KT::KTScopedPool scoped;
    std::printf("answer %d\n", KT::submit(scoped, [] { return 42; }).get());
    std::fflush(stdout);
    const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(1, 2, 0, 0, 0));
    pool->init(1, 2, 0, 0, 0);
    const boost::shared_ptr<KT::KTTask> task = boost::make_shared<Failing>();
    if (!pool->enqueue(task)) {
        return 1;
    }
    pool->wake();
    task->waitForEndOfTask();
    std::printf("%s", task->toString().c_str());
    return pool->close() ? 0 : 1;
}
