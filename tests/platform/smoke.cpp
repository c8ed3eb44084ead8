#include <cstdio>

#include <boost/make_shared.hpp>

#include <kterror/KTError.h>
#include <ktasync/ktasync.h>
#include <ktthread/ktthread.h>

struct Failing : KT::KTTask {
    void run() override { throw KT::KTError("client", "run", "as it should", "", 0); }
};

int main()
{
    const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(1, 2, 0, 0, 0));
    pool->init(1, 2, 0, 0, 0);
    const boost::shared_ptr<KT::KTTask> task = boost::make_shared<Failing>();
    if (!pool->enqueue(task)) {
        return 1;
    }
    pool->wake();
    task->waitForEndOfTask();
    std::printf("%s", task->toString().c_str());
    KT::KTScopedPool scoped;
    const int answer = KT::submit(scoped, [] { return 42; }).get();
    scoped.close();
    try {
        KT::submit(scoped, [] {}).get();
    } catch (const KT::KTError&) {
        return pool->close() && answer == 42 ? 0 : 1;
    }
    return 1;
}
