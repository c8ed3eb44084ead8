/// The work of one task: to sum one file.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include <ktasync/KTStopToken.h>

#include "Digest.h"
#include "Source.h"

/// What all tasks have done so far.
struct Board {
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> files{0};
};

/// What became of one entry.
struct Sum {
    Entry entry;
    std::string digest;
    std::string error;  ///< why there is no digest; empty if there is one
    bool isMissing = false;
    std::int32_t waitedUs = 0;  ///< from `submitted` until the task began, in microseconds
};

/// Sums the file of `entry`, for as long as `stop` isn't raised.
Sum sumOf(const KT::KTStopToken& stop, Entry entry, const Digest& digest, Board& board,
          std::chrono::steady_clock::time_point submitted);

/// What a task that sums `entry` is called: after the file rather than its directory, as seven
/// characters of it are seen.
std::string nameOf(const Entry& entry);
