/// Takes samples of a process from /proc.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "PoolNames.h"
#include "ProcText.h"
#include "Sample.h"
#include "ThreadReader.h"

/// There is no such process, it can't be read, or it is none that can be watched.
class ProcessError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The process that was watched has ended; `what` says so, and whether its pid is in use again.
class ProcessEnded : public ProcessError {
    using ProcessError::ProcessError;
};

/// One process. Belongs to one thread.
class ProcessReader {
public:
    /// `procfs` is where /proc is. At most `keptFiles` files stay open between samples; those of
    /// the other threads are opened again each time. Throws ProcessError.
    ProcessReader(const std::string& procfs, int pid, std::size_t keptFiles);

    const ProcessIdentity& process() const { return identity; }

    /// Throws ProcessEnded, and ProcessError if the process can't be read any more.
    Sample read(Details details = Details::all);

    /// Reads the details of a worker of the last sample as they are now, some milliseconds later;
    /// leaves it as it is if the thread has ended since.
    void readDetails(WorkerReading& worker);

private:
    StatText readStat() const;
    void checkStillThere(std::size_t threadsListed) const;
    std::vector<int> listThreads() const;
    void readThread(int tid, Details details, Sample& sample);

    const std::string root;
    ThreadReader threads;
    ProcessIdentity identity;
    std::optional<PoolNames> pools;
};
