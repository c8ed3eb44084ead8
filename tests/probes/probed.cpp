/// probed [again]: passes every probe, in an order that is known but for workers that start and end
/// side by side.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <kterror/KTError.h>
#include <ktthread/ktthread.h>

#include "Waiting.h"

namespace {

using Pool = boost::shared_ptr<KT::KTThreadPool>;

struct Task : KT::KTTask {
    Task(const std::string& name, bool isToFail) : fails(isToFail) { setTaskName(name); }
    void run() override
    {
        if (fails) {
            throw KT::KTError("probed", "run", "as it should", "probed.cpp", 1);
        }
    }
    bool isDone() const { return state == 2; }
    bool fails;
};

void expect(bool done)
{
    if (!done) {
        std::abort();
    }
}

boost::shared_ptr<Task> makeTask(const std::string& name, bool isToFail = false)
{
    return boost::make_shared<Task>(name, isToFail);
}

Pool makePool(int workers, int most, const char* name = "")
{
    const Pool pool = boost::make_shared<KT::KTThreadPool>(workers, most, 0, 0, 0);
    pool->setName(name);
    pool->init(workers, most, 0, 0, 0);
    return pool;
}

void awaitEnd(const Pool& pool, const boost::shared_ptr<Task>& task)
{
    expect(eventually([&] {
        pool->wake();
        return task->isDone();
    }));
}

void runTasks()
{
    const Pool pool = makePool(1, 1);
    for (const bool fails : {false, true}) {
        const boost::shared_ptr<Task> task =
            makeTask(fails ? "failing" : "a name of its own", fails);
        expect(pool->enqueue(task));
        awaitEnd(pool, task);
    }
    const boost::shared_ptr<Task> last = makeTask("last of a batch");
    expect(pool->enqueueAll(std::vector<boost::shared_ptr<KT::KTTask>>{makeTask("batched"), last}));
    awaitEnd(pool, last);
    expect(pool->close());
}

void growAndShrink()
{
    const Pool pool = makePool(19, 20, "render");
    expect(pool->adjustThread(1));
    expect(!pool->xIncreaseThread());
    expect(pool->adjustThread(-1));
    expect(eventually([&] {
        pool->wake();
        pool->enqueue(makeTask("waker"));
        return pool->status().threads == 19;
    }));
    expect(pool->close(true));
}

}  // namespace

/// With an argument: over and over, until its input ends.
int main(int argc, char**)
{
    do {
        runTasks();
        growAndShrink();
    } while (argc > 1 && std::getchar() != EOF);
}
