#include "TaskTally.h"

#include <algorithm>

void TaskTally::add(const std::vector<WorkerReading>& workers)
{
    Counted sample;
    for (const WorkerReading& worker : workers) {
        if (worker.state == WorkerState::running || worker.state == WorkerState::finished) {
            ++sample[worker.task];
        }
    }
    for (const auto& [task, looks] : sample) {
        counted[task] += looks;
        total += looks;
    }
    samples.push_back(std::move(sample));
}

void TaskTally::dropOldest()
{
    for (const auto& [task, looks] : samples.front()) {
        const auto found = counted.find(task);
        total -= looks;
        found->second -= looks;
        if (found->second == 0) {
            counted.erase(found);
        }
    }
    samples.pop_front();
}

std::vector<SeenTask> TaskTally::mostOften() const
{
    std::vector<SeenTask> tasks;
    tasks.reserve(counted.size());
    for (const auto& [task, looks] : counted) {
        tasks.push_back({task, looks});
    }
    std::stable_sort(tasks.begin(), tasks.end(),
                     [](const SeenTask& a, const SeenTask& b) { return a.looks > b.looks; });
    return tasks;
}
