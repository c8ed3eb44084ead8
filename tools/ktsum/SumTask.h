/// The task that sums one file.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include <ktthread/ktthread.h>

#include "Digest.h"
#include "Source.h"

/// What the tasks and the thread that waits for them share.
struct Board {
    Board();

    const boost::shared_ptr<KT::KTMutex> mutex;
    /// Signalled when the task that is awaited is done.
    const boost::shared_ptr<KT::KTCondition> done;
    /// Under `mutex`: the task that the main thread waits for, if it waits.
    const void* awaited = nullptr;
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> files{0};
};

/// Sums the file of an entry, named after it. The results are to be read once isDone().
class SumTask : public KT::KTTask {
public:
    /// `digest` and `board` must outlive the task.
    SumTask(Entry entry, const Digest& digest, Board& board);

    void run() override;
    void exitTask() override { stop = true; }

    /// Blocks until the task is done, at most `milliseconds`; whether it is.
    bool waitFor(int milliseconds);
    bool isDone() const { return finished; }

    const Entry& entry() const { return what; }
    /// Why there is no digest; empty if there is one.
    const std::string& error() const { return what.error; }
    bool isMissing() const { return missing; }
    const std::string& digest() const { return sum; }

private:
    void compute();

    Entry what;
    const Digest& digestToUse;
    Board& board;
    std::string sum;
    bool missing = false;
    std::atomic<bool> stop{false};
    std::atomic<bool> finished{false};
};
