/// The progress line on a terminal.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include <ktasync/KTStopToken.h>

#include "Source.h"

/// What there is to do in all; complete once the task that counts it has ended.
struct Totals {
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> files{0};
    std::atomic<bool> complete{false};
};

/// Counts the files of `source`, and their sizes, until the end or until `stop` is raised. A source
/// that can't be read on leaves the totals incomplete: who sums its files will say so.
void countAll(const KT::KTStopToken& stop, std::unique_ptr<Source> source, Totals& totals);

struct ProgressFigures {
    std::uint64_t bytes = 0;
    std::uint64_t files = 0;
    std::uint64_t allBytes = 0;  ///< 0: not known (yet), like allFiles
    std::uint64_t allFiles = 0;
    double seconds = 0;
    int busy = 0;
    int workers = 0;
};

/// The text of the line: files, bytes, rate, time left (once all is counted), workers busy.
std::string formatProgress(const ProgressFigures& figures);

/// Shows the line on standard error, if that is a terminal, some times a second at most. Belongs to
/// one thread.
class Progress {
public:
    Progress();
    bool isShown() const { return terminal; }

    /// Whether it is time for a new line.
    bool isDue() const;
    void show(const std::string& text);

    /// Takes the line away, for other output.
    void clear();

private:
    bool terminal;
    bool visible = false;
    std::chrono::steady_clock::time_point shown;
};
