#include "ManyClients.h"

#include <algorithm>
#include <map>
#include <memory>
#include <thread>

#include <ktasync/ktasync.h>

#include "Finding.h"
#include "QuietConsole.h"
#include "Waiting.h"

namespace {

const int closeMs = 20000;

/// Sizes that make sense: the others are for the exact model.
Setup sensible(Setup setup)
{
    setup.workers = std::max(setup.workers, 1);
    setup.maxThreads = std::max(setup.maxThreads, setup.workers);
    return setup;
}

}  // namespace

void ManyClients::run(const Program& program)
{
    silenceLog();
    const QuietConsole quiet;
    KT::KTThread::setStackSize(program.setup.stackSize);
    auto clients = std::make_unique<ManyClients>(program);
    clients->play();
    if (!program.setup.stops) {
        clients->drain();
    }
    if (!clients->close()) {
        // Its threads go on, and so must what they use.
        throw Finding("the pool doesn't close\n" + clients.release()->findings);
    }
    clients->checkTasks();
    clients->checkPosted();
    require(clients->findings.empty(), clients->findings);
}

ManyClients::ManyClients(const Program& played) : program(played)
{
    const Setup setup = sensible(program.setup);
    around.pool.reset(new KT::KTThreadPool(setup.workers, setup.maxThreads, setup.period, 0, 0));
    around.pool->init(setup.workers, setup.maxThreads, setup.period, 0, 0);
}

void ManyClients::found(const std::string& what)
{
    const std::lock_guard<std::mutex> hold(findingsMutex);
    if (findings.size() < 1000) {
        findings += what + "\n";
    }
}

void ManyClients::foundUnless(bool holds, const std::string& what)
{
    if (!holds) {
        found(what);
    }
}

void ManyClients::play()
{
    Threads clients;
    for (int client = 0; client < program.setup.clients; ++client) {
        clients.start([this, client] { playAlone(client); });
    }
}

void ManyClients::playAlone(int client)
{
    for (const Step& step : program.steps) {
        if (step.who % program.setup.clients == client) {
            act(client, step);
        }
    }
}

void ManyClients::act(int client, const Step& step)
{
    switch (step.act) {
        case Act::useLocks:
            foundUnless(meetingPoint.useLocks(step), "a lock doesn't keep threads apart");
            break;
        case Act::useConditions: meetingPoint.useConditions(step); break;
        case Act::awaitEnded: awaitEnded(step); break;
        case Act::stop:
        case Act::stopByForce:
        case Act::close: end(step); break;
        default: actOnPool(client, step);
    }
}

void ManyClients::actOnPool(int client, const Step& step)
{
    KT::KTThreadPool& pool = *around.pool;
    switch (step.act) {
        case Act::enqueue: enqueue(client, step); break;
        case Act::enqueueEmpty: enqueueEmpty(); break;
        case Act::enqueueBatch: enqueueBatch(client, step); break;
        case Act::post: post(step); break;
        case Act::wake: pool.wake(); break;
        case Act::adjust: pool.adjustThread(deltaOf(step.amount)); break;
        case Act::increase: pool.xIncreaseThread(); break;
        case Act::take: take(); break;
        case Act::reportEnd: pool.taskEnded(around.newTask(client, step.amount)); break;
        case Act::retireNobody:
            foundUnless(!pool.apoptosis(boost::shared_ptr<KT::KTThread>()), "nobody must retire");
            break;
        case Act::join:
            foundUnless(!pool.join(step.amount % 3) || program.setup.stops,
                        "a running pool joined");
            break;
        default: look();
    }
}

void ManyClients::end(const Step& step)
{
    if (!program.setup.stops) {
        return;
    }
    if (step.act == Act::close) {
        around.pool->close(step.amount % 2 == 1, step.extra % 20);
    } else {
        around.pool->shutdown(step.act == Act::stopByForce);
    }
}

void ManyClients::enqueue(int client, const Step& step)
{
    const Quick task = around.newTask(client, step.amount);
    const bool isAccepted = around.pool->enqueue(task);
    task->accepted += isAccepted ? 1 : 0;
    foundUnless(isAccepted || program.setup.stops, "a running pool refused a task");
}

void ManyClients::enqueueEmpty()
{
    foundUnless(!around.pool->enqueue(boost::shared_ptr<KT::KTTask>()), "nothing is no task");
}

void ManyClients::enqueueBatch(int client, const Step& step)
{
    std::vector<Quick> batch;
    std::vector<boost::shared_ptr<KT::KTTask>> pointers;
    bool hasEmpty = false;
    for (int i = 0; i < step.amount % 9; ++i) {
        if ((step.extra >> i & 7) == 7) {
            hasEmpty = true;
            pointers.emplace_back();
            continue;
        }
        batch.push_back(around.newTask(client, step.extra + i));
        pointers.push_back(batch.back());
    }
    const bool isAccepted = around.pool->enqueueAll(pointers);
    foundUnless(isAccepted != hasEmpty || program.setup.stops, "a batch was answered wrongly");
    for (const Quick& task : batch) {
        (hasEmpty ? task->uncertain : task->accepted) += isAccepted || hasEmpty ? 1 : 0;
    }
}

void ManyClients::post(const Step& step)
{
    // What a callable holds, counted.
    const std::shared_ptr<int> token(new int(step.amount), [this](const int* held) {
        delete held;
        --postsAlive;
    });
    ++postsAlive;
    const bool isAccepted = KT::post(around.pool, "posted", [this, token, again = step.extra % 3] {
        ++postsRun;
        if (again == 0) {
            posted += KT::post(around.pool, "again", [this, token] { ++postsRun; }) ? 1 : 0;
        }
    });
    posted += isAccepted ? 1 : 0;
    foundUnless(isAccepted || program.setup.stops, "a running pool refused a post");
}

void ManyClients::take()
{
    const auto task = boost::dynamic_pointer_cast<QuickTask>(around.pool->getTask());
    if (task) {
        ++task->taken;
    }
}

void ManyClients::look()
{
    around.pool->resetSumThreadIdle();
    const ro::os::timeval sum = around.pool->computeSumThreadIdle();
    foundUnless(sum.tv_sec == 0 && sum.tv_usec == 0, "workers have been idle");
    const KT::KTThreadPoolStatus status = around.pool->status();
    const int most = sensible(program.setup).maxThreads;
    foundUnless(status.maxThreads == most, "maxThreads changed");
    foundUnless(status.threads >= 0 && status.threads <= most, "threads out of bounds");
    foundUnless(status.threadsToRemove >= 0 && status.threadsToRemove < most, "retirements");
    foundUnless(status.queuedTasks >= 0, "fewer tasks than none");
    foundUnless(status.busyThreads >= 0, "fewer busy than none");
    foundUnless(status.threads > status.threadsToRemove || program.setup.stops, "all may retire");
    foundUnless(status.busyThreads <= most || program.setup.stops, "too many busy");
}

void ManyClients::awaitEnded(const Step& step)
{
    Quick task;
    {
        const std::lock_guard<std::mutex> hold(around.mutex);
        if (!around.all.empty()) {
            task = around.all[static_cast<std::size_t>(step.amount) % around.all.size()];
        }
    }
    // One that came to the end of its body will be finished, unless it is cut off on its way there.
    if (task && task->ends > 0 && !program.setup.stops) {
        task->waitForEndOfTask();
    }
}

/// Waits until each accepted task, including those that tasks queue, has run or was taken.
void ManyClients::drain()
{
    const auto isDrained = [this] {
        around.pool->wake();
        const std::lock_guard<std::mutex> hold(around.mutex);
        return std::all_of(around.all.begin(), around.all.end(), [](const Quick& task) {
            return task->accepted + task->uncertain <= task->ends + task->taken;
        });
    };
    foundUnless(soon(isDrained), "tasks are lost");
    foundUnless(soon([this] { return posted == postsRun; }), "posts are lost");
    const auto isAtRest = [this] {
        around.pool->wake();  // for empty pointers in the queue
        const KT::KTThreadPoolStatus status = around.pool->status();
        return status.queuedTasks == 0 && status.busyThreads == 0;
    };
    foundUnless(soon(isAtRest), "the pool doesn't come to rest");
}

bool ManyClients::close()
{
    if (!around.pool->close(program.setup.initAt > 0, closeMs)) {
        return false;
    }
    const KT::KTThreadPoolStatus status = around.pool->status();
    foundUnless(status.threads == 0 && status.queuedTasks == 0, "something is left");
    foundUnless(!around.pool->enqueue(around.newTask(0, 0)), "a closed pool takes a task");
    // The clock may be looking at it.
    foundUnless(soon([this] { return around.pool.use_count() == 1; }),
                "somebody holds the closed pool");
    foundUnless(soon([] { return threadsNamed("KTT").empty(); }), "a thread is left");
    foundUnless(meetingPoint.isComplete(), "what was done under a lock is lost");
    return true;
}

void ManyClients::checkTasks()
{
    for (const Quick& task : around.all) {
        const int queued = task->accepted + task->uncertain;
        const int used = task->starts + task->taken;
        foundUnless(used <= queued, "a task was refused and ran, or ran more than once");
        foundUnless(used == queued || program.setup.stops, "an accepted task didn't run");
        foundUnless(task->ends == task->starts || program.setup.stops, "a task was cut off");
        foundUnless(task.use_count() == 1, "somebody holds a task of a closed pool");
    }
    if (sensible(program.setup).maxThreads == 1 && !program.setup.stops) {
        checkOrder();
    }
}

void ManyClients::checkPosted()
{
    foundUnless(postsRun <= posted || program.setup.stops, "a post ran more than once");
    foundUnless(postsRun == posted || program.setup.stops, "an accepted post didn't run");
    foundUnless(soon([this] { return postsAlive == 0; }), "a callable is left");
}

/// A client's tasks stand in `all` in the order in which it queued them.
void ManyClients::checkOrder()
{
    std::map<const QuickTask*, std::size_t> positions;
    for (const Quick& task : around.all) {
        positions.emplace(task.get(), positions.size());
    }
    std::map<int, std::size_t> last;
    for (const QuickTask* const task : around.begun) {
        const std::size_t position = positions[task] + 1;
        foundUnless(last[task->owner] < position, "tasks were begun out of order");
        last[task->owner] = position;
    }
}
