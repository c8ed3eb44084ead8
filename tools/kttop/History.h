/// What samples after one another say.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Sample.h"
#include "TaskTally.h"

/// How far back the history line and the tally of tasks go.
const double historySeconds = 300;

/// Rates of switches are over this time at most, or between the last two samples.
const double longestRateSeconds = 10;

/// A worker between the last two samples.
struct Worker {
    WorkerReading reading;
    double stateSeconds = 0;      ///< since the state and the task were first seen
    bool sinceBefore = false;     ///< the state had begun before the first sample
    bool hasRates = false;        ///< seen twice, so that the following two are known
    double cpuPercent = 0;        ///< of one processor
    double waitPercent = 0;       ///< ready to run, without a processor
    bool hasSwitchRates = false;  ///< its details were read lately, too
    double voluntaryRate = 0;     ///< context switches a second, since the details before
    double involuntaryRate = 0;
};

struct Counts {
    int workers = 0;
    int running = 0;  ///< those that have just finished included
    int sleeping = 0;
    int idle = 0;
    int fresh = 0;
    int otherThreads = 0;
};

/// One sample's part of the history line.
struct Moment {
    std::uint64_t number = 0;  ///< of the sample, from 0 on
    std::int64_t atNs = 0;
    Counts counts;
};

/// All that is shown of a process. Holds no reference to the history that it is from.
struct Snapshot {
    std::int64_t atNs = 0;
    std::int64_t wallClockMs = 0;
    double secondsBetween = 0;  ///< the last two samples
    Counts counts;
    double cpuPercent = 0;  ///< of all workers together
    std::vector<Worker> workers;
    std::deque<Moment> moments;   ///< the oldest first
    std::vector<SeenTask> tasks;  ///< the one seen most often first
    std::uint64_t taskLooks = 0;  ///< looks at workers that ran one
};

/// Takes samples in, oldest first. Its memory is bounded, however long it goes on.
class History {
public:
    void add(const Sample& sample);

    /// Takes in what was read of a worker of the last sample later: its details.
    void addDetails(const WorkerReading& reading);

    /// The last sample, without the tasks.
    const Snapshot& latest() const { return now; }

    Snapshot snapshot() const;

private:
    struct Track {
        WorkerReading last;
        std::optional<std::int64_t> detailsNs;  ///< when the following were read
        std::uint64_t voluntary = 0;
        std::uint64_t involuntary = 0;
        std::int64_t sinceNs = 0;
        bool sinceBefore = false;
        bool seen = false;
    };

    Worker follow(const WorkerReading& reading, const Sample& sample);
    void followSwitches(Track& track, Worker& worker) const;
    void forgetEnded();
    void forgetOld(std::int64_t nowNs);

    std::uint64_t samples = 0;
    Snapshot now;  ///< without the tasks
    std::unordered_map<int, Track> tracks;
    TaskTally tally;
};
