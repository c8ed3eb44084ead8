/// Which tasks were seen most often.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "Sample.h"

struct SeenTask {
    std::string task;
    std::uint64_t looks = 0;  ///< workers that ran it, summed over the samples
};

/// Counts the tasks of the samples of late.
class TaskTally {
public:
    void add(const std::vector<WorkerReading>& workers);
    /// Takes the oldest sample out again.
    void dropOldest();

    std::uint64_t looks() const { return total; }
    /// The one seen most often first; equals by name.
    std::vector<SeenTask> mostOften() const;

private:
    using Counted = std::map<std::string, std::uint64_t>;
    Counted counted;
    std::uint64_t total = 0;
    std::deque<Counted> samples;
};
