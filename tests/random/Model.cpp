#include "Model.h"

#include <algorithm>

Model::Model(const Setup& chosen) : sizes(chosen.workers, chosen.maxThreads), setup(chosen) {}

bool Model::init()
{
    isInitialised = true;
    hasMonitor = setup.workers <= setup.maxThreads;
    return hasMonitor;
}

bool Model::enqueue(const std::vector<Held>& batch)
{
    if (!sizes.runs() || !hasMonitor) {
        return false;
    }
    const int busy = cutOff + static_cast<int>(running.size());
    const auto tasks = std::count_if(batch.begin(), batch.end(), [](const Held& t) { return !!t; });
    queue.insert(queue.end(), batch.begin(), batch.end());
    // Workers on their way to sleep may have begun with some before the monitor looks.
    sizes.looked(busy, busy + static_cast<int>(tasks));
    return tasks == static_cast<std::ptrdiff_t>(batch.size());
}

Held Model::take()
{
    if (queue.empty()) {
        return Held();
    }
    const Held first = queue.front();
    queue.pop_front();
    return first;
}

void Model::countEnds(int count)
{
    for (int i = 0; hasMonitor && i < count; ++i) {
        if (++endedTasks == setup.period) {
            endedTasks = 0;
            const int busy = cutOff + static_cast<int>(running.size());
            sizes.looked(busy, busy);
        }
    }
}

void Model::reportEnd()
{
    countEnds(1);
}

void Model::release(std::size_t index)
{
    countEnds(1);  // its worker still counts as busy
    running.erase(running.begin() + static_cast<std::ptrdiff_t>(index));
}

void Model::stop()
{
    // First: the monitor may look while the tasks end, or when there are no workers any more.
    sizes.stopped();
    countEnds(static_cast<int>(running.size()));
    running.clear();
    queue.clear();
}

// Each task ends because it is asked to exit, or is cut off: its counters say which.
void Model::stopByForce()
{
    const auto isCutOff = [](const Held& task) { return task->ends != task->starts; };
    const auto cut = std::partition(running.begin(), running.end(), isCutOff);
    cutOff += static_cast<int>(cut - running.begin());
    running.erase(running.begin(), cut);
    stop();
}

void Model::close()
{
    hasMonitor = false;
}

Model::Rest Model::restWith(int threads) const
{
    Rest rest{{}, 0};
    while (static_cast<int>(running.size() + rest.taken.size()) < threads &&
           rest.fromQueue < queue.size()) {
        const Held& next = queue[rest.fromQueue++];
        if (next) {
            rest.taken.push_back(next);
        }
    }
    return rest;
}

bool Model::isAtRest(const KT::KTThreadPoolStatus& status) const
{
    const Rest rest = restWith(status.threads);
    const std::size_t busy = running.size() + rest.taken.size();
    return sizes.mayBe(status.threads, status.threadsToRemove) &&
           status.busyThreads == cutOff + static_cast<int>(busy) &&
           status.queuedTasks == static_cast<int>(queue.size() - rest.fromQueue) &&
           std::all_of(rest.taken.begin(), rest.taken.end(),
                       [](const Held& task) { return task->starts == task->expectedStarts + 1; });
}

void Model::settle(const KT::KTThreadPoolStatus& status)
{
    const Rest rest = restWith(status.threads);
    queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(rest.fromQueue));
    for (const Held& task : rest.taken) {
        ++task->expectedStarts;
        running.push_back(task);
    }
    sizes.observed(status.threads, status.threadsToRemove);
}
