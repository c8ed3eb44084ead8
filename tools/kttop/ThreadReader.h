/// Reads the files of a process's threads below /proc.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "ProcFile.h"
#include "Sample.h"

/// What there is to read of each thread; keeps files open from one look at it to the next. Belongs
/// to one thread.
class ThreadReader {
public:
    /// `folderOfThreads` is the process's folder that has one for each thread. At most `keptFiles`
    /// files stay open; those of the other threads are opened again each time.
    ThreadReader(FileDescriptor folderOfThreads, std::size_t keptFiles);

    int folder() const { return tasks.get(); }

    /// Nothing if the thread has ended.
    std::optional<std::string> readName(int tid);

    /// What is known of a worker beside its name. False if it has ended.
    bool readWorker(Details details, WorkerReading& worker);

    /// The number that a worker which was read has where its process is: another one in a
    /// container.
    int innermostNumber(int tid);

    /// Only the details, as they are now; leaves `worker` as it is if it has ended.
    void readDetails(WorkerReading& worker);

    /// Closes the files of the threads whose names were not read since the last call.
    void forgetUnseen();

private:
    struct Thread {
        std::uint64_t start = 0;
        int innermost = 0;  ///< 0: not read yet
        bool seen = false;
        WorkerReading last;  ///< with details
        ThreadFile comm{"comm"};
        ThreadFile status{"status"};
        ThreadFile schedstat{"schedstat"};
        ThreadFile wchan{"wchan"};
    };

    bool readStart(Thread& thread, WorkerReading& worker, bool hasTimes);
    bool readStatus(Thread& thread, WorkerReading& worker);
    std::optional<std::string> read(int tid, ThreadFile& file);
    void forget(std::map<int, Thread>::iterator thread);

    FileDescriptor tasks;
    const std::size_t mayKeep;
    std::size_t kept = 0;
    std::map<int, Thread> threads;
};

/// Files that may stay open, the limit of open files having been raised as far as it goes.
std::size_t filesToKeep();
