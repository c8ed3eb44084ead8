/// The whole run: files in, tasks through the pool, results out in order.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include <ktasync/ktasync.h>

#include "Digest.h"
#include "Options.h"
#include "Progress.h"
#include "Report.h"
#include "Results.h"
#include "Source.h"
#include "Sum.h"

/// One run of the program.
///
/// Tasks are made a window ahead of the results: the window bounds the memory and the queue,
/// however many files there are, and the first task of it is the next to be printed.
class Run {
public:
    /// Throws std::invalid_argument for an unknown algorithm, std::system_error for a list that
    /// can't be opened, std::runtime_error for a trace that can't be written, KTError
    /// if the pool can't start.
    explicit Run(const Options& options);

    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    /// The exit status. Throws OutputError, std::system_error for a list that can't be read on.
    int go();

private:
    /// A task, or the number of an improper line.
    struct Pending {
        KT::KTFuture<Sum> sum;
        std::uint64_t improperLine;
    };

    void startTrace(const std::string& file);
    std::unique_ptr<Source> makeSource() const;
    void startCounting();
    void fillWindow();
    void printFront();
    void showProgress();
    void report() const;
    int stopEarly(int signal);
    double seconds() const;

    const Options options;
    const Digest digest;
    const std::chrono::steady_clock::time_point start;
    Board board;
    Totals totals;
    Results results;
    Progress progress;
    RunFigures figures;
    std::unique_ptr<Source> source;
    bool atEnd = false;
    std::deque<Pending> window;
    KT::KTScopedPool pool;
    std::optional<KT::KTTraceRecorder> trace;
};
