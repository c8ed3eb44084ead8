#include "OneClient.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include <boost/make_shared.hpp>

#include <kterror/KTError.h>

#include "Finding.h"
#include "QuietConsole.h"
#include "Waiting.h"

namespace {

const int joinMs = 20000;

std::string describe(const KT::KTThreadPoolStatus& status)
{
    std::ostringstream text;
    text << status.threads << " threads, " << status.busyThreads << " busy, "
         << status.threadsToRemove << " to remove, " << status.queuedTasks << " queued";
    return text.str();
}

std::int32_t wrappedMicroseconds(ro::os::timeval from, ro::os::timeval to)
{
    const std::int64_t seconds = std::int64_t(to.tv_sec) - from.tv_sec;
    const std::int64_t microseconds = seconds * 1000000 + (std::int64_t(to.tv_usec) - from.tv_usec);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(microseconds));
}

}  // namespace

void OneClient::run(const Program& program)
{
    silenceLog();
    const QuietConsole quiet;
    KT::KTThread::setStackSize(program.setup.stackSize);
    if (program.setup.maxThreads < 0) {
        try {
            KT::KTThreadPool(program.setup.workers, program.setup.maxThreads, 0, 0, 0);
        } catch (const std::length_error&) {
            return;
        }
        throw Finding("a pool of fewer than no threads was made");
    }
    OneClient client(program.setup);
    try {
        client.go(program.steps);
    } catch (const Finding& finding) {
        client.letGo();
        throw Finding("step " + std::to_string(client.position) + ": " + finding.what());
    }
    client.finish();
}

OneClient::OneClient(const Setup& chosen)
    : setup(chosen),
      model(setup),
      pool(new KT::KTThreadPool(setup.workers, setup.maxThreads, setup.period, 0, 0))
{
}

void OneClient::go(const std::vector<Step>& steps)
{
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (i == setup.initAt) {
            init();
        }
        if (isForNow(steps[i], steps.size())) {
            position = i + 1;
            act(steps[i]);
            settle();
        }
    }
}

// Steps that end a pool come after init, if there is one. So do requests to retire: the first
// workers would retire while init makes the others.
bool OneClient::isForNow(const Step& step, std::size_t steps) const
{
    const bool ends =
        step.act == Act::stop || step.act == Act::stopByForce || step.act == Act::close;
    const bool retires = step.act == Act::adjust && deltaOf(step.amount) < 0;
    return model.isInitialised || setup.initAt >= steps || !(ends || retires);
}

void OneClient::init()
{
    bool succeeded = true;
    try {
        pool->init(setup.workers, setup.maxThreads, setup.period, 0, 0);
    } catch (const KT::KTError&) {
        succeeded = false;
    }
    require(succeeded == model.init(), "init is wrong about the number of workers");
}

// The figures of one look may be of different moments: two looks in a row must find the same.
void OneClient::settle()
{
    KT::KTThreadPoolStatus last{};
    KT::KTThreadPoolStatus now{};
    const bool rests = soon([&] {
        last = now;
        now = pool->status();
        if (model.isAtRest(now) && now.threads == last.threads &&
            now.threadsToRemove == last.threadsToRemove && model.isAtRest(last)) {
            return true;
        }
        pool->wake();
        return false;
    });
    require(rests, "the pool doesn't come to the model's state: " + describe(now));
    require(now.maxThreads == setup.maxThreads, "maxThreads changed");
    model.settle(now);
}

void OneClient::act(const Step& step)
{
    switch (step.act) {
        case Act::handleTask: handleTask(step); break;
        case Act::awaitEnded: awaitEnded(); break;
        case Act::useLocks: locks.useLocks(step); break;
        case Act::useConditions: locks.useConditions(step); break;
        case Act::stop: stop(false); break;
        case Act::stopByForce: stop(true); break;
        case Act::close: close(step.amount % 2 == 1); break;
        default: actOnPool(step);
    }
}

void OneClient::actOnPool(const Step& step)
{
    switch (step.act) {
        case Act::enqueue: enqueue(step); break;
        case Act::enqueueEmpty: enqueueEmpty(); break;
        case Act::enqueueBatch: enqueueBatch(step); break;
        case Act::enqueueAgain: enqueueAgain(step); break;
        case Act::release: release(step); break;
        case Act::wake: require(pool->wake() == model.wake(), "wake is wrong"); break;
        case Act::adjust: adjust(step); break;
        case Act::increase: increase(); break;
        case Act::look: look(); break;
        case Act::take: take(); break;
        case Act::reportEnd: reportEnd(step); break;
        case Act::retireNobody:
            require(!pool->apoptosis(boost::shared_ptr<KT::KTThread>()), "nobody must retire");
            break;
        case Act::join: join(step); break;
        default: break;
    }
}

Held OneClient::newTask(int manner)
{
    all.push_back(boost::make_shared<HeldTask>(manner));
    all.back()->setTaskName(std::string(static_cast<std::size_t>(manner), 'x'));
    return all.back();
}

void OneClient::enqueue(const Step& step)
{
    const Held task = newTask(step.amount);
    require(pool->enqueue(task) == model.enqueue({task}), "enqueue answers wrongly");
}

void OneClient::enqueueEmpty()
{
    model.enqueue({Held()});
    require(!pool->enqueue(boost::shared_ptr<KT::KTTask>()), "an empty pointer is no task");
}

// Some of the pointers are empty where two bits in a row say so.
void OneClient::enqueueBatch(const Step& step)
{
    std::vector<Held> batch;
    for (int i = 0; i < step.amount % 7; ++i) {
        const bool isEmpty = (step.extra >> i & 3) == 3;
        batch.push_back(isEmpty ? Held() : newTask(step.who));
    }
    enqueueAll(batch);
}

void OneClient::enqueueAll(const std::vector<Held>& batch)
{
    const std::vector<boost::shared_ptr<KT::KTTask>> tasks(batch.begin(), batch.end());
    require(pool->enqueueAll(tasks) == model.enqueue(batch), "enqueueAll answers wrongly");
}

void OneClient::enqueueAgain(const Step& step)
{
    if (ended.empty()) {
        return;
    }
    const std::size_t index = static_cast<std::size_t>(step.amount) % ended.size();
    const Held task = ended[index];
    ended.erase(ended.begin() + static_cast<std::ptrdiff_t>(index));
    task->holdAgain();
    enqueueAll({task});
}

void OneClient::release(const Step& step)
{
    if (model.running.empty()) {
        return;
    }
    const std::size_t index = static_cast<std::size_t>(step.amount) % model.running.size();
    const Held task = model.running[index];
    model.release(index);
    task->release();
    require(soon([&task] { return task->ends == task->starts; }), "a task doesn't end");
    task->waitForEndOfTask();
    ended.push_back(task);
}

void OneClient::adjust(const Step& step)
{
    const int delta = deltaOf(step.amount);
    const bool answer = pool->adjustThread(delta);
    require(model.sizes.adjusted(delta, answer), "adjustThread answers wrongly");
}

// A pool that was shut down is joined before it is started again. Otherwise one of its old workers
// might take a new task before it ends, and one that a growth has started meanwhile would stay.
void OneClient::increase()
{
    require(model.sizes.runs() || pool->join(joinMs), "a stopped pool doesn't join");
    const bool answer = pool->xIncreaseThread();
    require(model.sizes.increased(answer), "xIncreaseThread answers wrongly");
}

void OneClient::look()
{
    pool->resetSumThreadIdle();
    const ro::os::timeval sum = pool->computeSumThreadIdle();
    require(sum.tv_sec == 0 && sum.tv_usec == 0, "workers have been idle");
    require(pool->getThis() == pool, "the pool is another");
}

// A task taken away from the queue never runs, which is checked at the end.
void OneClient::take()
{
    const Held expected = model.take();
    require(pool->getTask() == expected, "getTask gives another task than the oldest");
    if (expected && expected->starts == 0) {
        ended.push_back(expected);
    }
}

void OneClient::reportEnd(const Step& step)
{
    if (step.amount % 4 == 0) {
        pool->taskEnded(boost::shared_ptr<KT::KTTask>());
        return;
    }
    pool->taskEnded(newTask(step.amount));
    model.reportEnd();
}

void OneClient::stop(bool force)
{
    const std::vector<Held> asked = model.running;
    pool->shutdown(force);
    afterStop(force, asked);
}

void OneClient::afterStop(bool force, const std::vector<Held>& asked)
{
    for (const Held& task : asked) {
        require(soon([&task] { return task->lefts == task->starts; }), "a task isn't stopped");
        require(force || task->ends == task->starts, "a gentle shutdown cut a task off");
    }
    force ? model.stopByForce() : model.stop();
}

void OneClient::join(const Step& step)
{
    const bool expected = model.join();
    require(pool->join(joinMs) == expected, "join answers wrongly");
    if (!expected || step.amount % 2 == 0) {
        require(pool->join(expected ? -1 : 0) == expected, "another join answers otherwise");
    }
}

void OneClient::close(bool force)
{
    const std::vector<Held> asked = model.running;
    require(pool->close(force, joinMs), "the pool doesn't close");
    afterStop(force, asked);
    model.close();
}

// The durations must be those of the stamps, wrapped, whatever the stamps; the report has six
// lines.
void OneClient::handleTask(const Step& step)
{
    const Held task = newTask(0);
    const std::string name(static_cast<std::size_t>(step.extra), static_cast<char>(step.who | 128));
    task->setTaskName(name);
    require(task->getTaskName() == name, "a task has another name");
    const auto stampOf = [](int from) {
        const std::int32_t seconds[] = {0, INT32_MAX, INT32_MIN, -1, 2147, 2148, 86400, 1795183200};
        const std::int32_t microseconds[] = {0, 999999, 1, 483647};
        return ro::os::timeval{seconds[from % 8], microseconds[from / 8 % 4]};
    };
    const ro::os::timeval created = stampOf(step.amount);
    const ro::os::timeval executed = stampOf(step.extra);
    const ro::os::timeval done = stampOf(step.who);
    task->setStamps(created, executed, done);
    require(task->getIdleTime() == wrappedMicroseconds(created, executed), "idle time");
    require(task->getExecutionTime() == wrappedMicroseconds(executed, done), "execution time");
    const std::string report = task->toString();
    require(report.compare(0, name.size() + 8, "Name : " + name + "\n") == 0, "a report's name");
    require(std::count(report.begin(), report.end(), '\n') == 6, "a report's lines");
    require(report.find("not managed by any thread\nState: 0\n") != std::string::npos, "its state");
    task->setExecutionTime();
    require(task->toString().find("\nState: 1\n") != std::string::npos, "a running task's state");
    task->setEndTime();
    task->waitForEndOfTask();
    task->setThread(boost::shared_ptr<KT::KTThread>());
}

void OneClient::awaitEnded()
{
    for (const Held& task : ended) {
        if (task->ends > 0) {
            task->waitForEndOfTask();
        }
    }
}

/// After a finding: ends all tasks and workers, whatever the pool's state.
void OneClient::letGo()
{
    for (const Held& task : all) {
        task->release();
    }
    pool->close(true, joinMs);
}

void OneClient::finish()
{
    try {
        close(setup.clients % 2 == 0);
        settle();
    } catch (const Finding&) {
        letGo();
        throw;
    }
    require(pool->status().threads == 0 && pool->status().queuedTasks == 0, "something is left");
    require(!pool->enqueue(newTask(0)), "a closed pool takes a task");
    require(pool.use_count() == 1, "somebody holds the closed pool");
    ended.clear();
    model.queue.clear();
    model.running.clear();
    for (const Held& task : all) {
        require(task->starts == task->expectedStarts, "a task has run another number of times");
        require(task.use_count() == 1, "somebody holds a task of a closed pool");
    }
    pool.reset();
    require(soon([] { return threadsNamed("KTT").empty(); }), "a thread is left");
}
