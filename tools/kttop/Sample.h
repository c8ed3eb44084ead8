/// What was read of a process at one moment.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What a worker's name says of it. `finished` is a task's end, shown by short task names only: the
/// kernel cuts longer ones before that.
enum class WorkerState { running, finished, idle, fresh, sleeping };

/// Which process: a pid comes back, together with the start time it doesn't.
struct ProcessIdentity {
    int pid = 0;
    std::uint64_t start = 0;  ///< clock ticks after the boot
    std::string name;         ///< as the kernel has it: any bytes, at most 15
};

/// One worker's counts since its start. The details cost more to read than all the rest, and a
/// terminal shows those of a few rows only.
struct WorkerReading {
    int tid = 0;
    std::uint64_t start = 0;  ///< clock ticks after the boot
    WorkerState state = WorkerState::sleeping;
    std::string task;  ///< of running and finished: any bytes, at most 7 of the task's name
    std::string pool;  ///< any bytes, at most 31; empty: not known
    std::uint64_t cpuNs = 0;
    // Not every kernel tells these two.
    std::optional<std::uint64_t> waitNs;  ///< ready to run without a processor
    std::optional<std::uint64_t> slices;  ///< times that it got a processor; not recorded

    bool hasDetails = true;       ///< the following were read, too
    char kernelState = '?';       ///< R, S, D, ... as in ps
    std::uint64_t voluntary = 0;  ///< context switches
    std::uint64_t involuntary = 0;
    std::string waitsIn;  ///< the kernel's function that it sleeps in; empty: not told
};

struct Sample {
    std::int64_t atNs = 0;         ///< monotonic
    std::int64_t wallClockMs = 0;  ///< since 1970
    std::vector<WorkerReading> workers;
    int otherThreads = 0;
};

/// Whose details a sample has: `known` are those that no costly file need be read for, since the
/// worker has had no processor since its details were read last.
enum class Details { all, known };

/// "running", "finished", "idle", "new" or "sleeping".
const char* nameOf(WorkerState state);
