#include "Run.h"

#include <functional>
#include <stdexcept>
#include <utility>

#include <unistd.h>

#include <kterror/KTError.h>

#include "CheckList.h"
#include "FileList.h"
#include "Interrupt.h"
#include "Names.h"
#include "Output.h"

namespace {

/// Tasks in flight: enough to keep all workers busy while the first one is a large file.
const std::size_t windowSize = 2048;

/// How often a wait looks for Ctrl-C and for the progress line.
const int pollMs = 100;

/// How long an interrupted run waits for its tasks, before it cuts them off, and after.
const int stopMs = 1000;

KT::KTPoolOptions poolOptions(const Options& options)
{
    KT::KTPoolOptions pool;
    pool.threads = options.threads;
    pool.maxThreads = options.maxThreads;
    pool.monitorPeriod = 0;
    // What is left when a run ends early, nobody wants any more.
    pool.queued = KT::KTPoolOptions::Queued::drop;
    return pool;
}

}  // namespace

Run::Run(const Options& chosen)
    : options(chosen),
      digest(options.algorithm),
      start(std::chrono::steady_clock::now()),
      results(options, digest),
      source(makeSource()),
      pool(poolOptions(options))
{
    if (options.trace) {
        startTrace(*options.trace);
    }
}

void Run::startTrace(const std::string& file)
{
    try {
        trace.emplace(pool, file);
    } catch (const KT::KTError&) {
        throw std::runtime_error("the trace '" + asPrinted(file) + "' can't be written");
    }
}

std::unique_ptr<Source> Run::makeSource() const
{
    const auto whole = [this]() -> std::unique_ptr<Source> {
        if (options.checkFile) {
            return std::make_unique<CheckList>(*options.checkFile, digest);
        }
        return std::make_unique<FileList>(options.paths);
    };
    if (options.shards == 1) {
        return whole();
    }
    const std::unique_ptr<Source> counted = whole();
    return std::make_unique<Shard>(whole(), *counted, options.shard, options.shards);
}

int Run::go()
{
    startCounting();
    for (;;) {
        fillWindow();
        if (const int signal = interrupted()) {
            return stopEarly(signal);
        }
        if (window.empty()) {
            break;
        }
        printFront();
        if (progress.isDue()) {
            showProgress();
        }
    }
    progress.clear();
    figures.mostWorkers = pool.status().threads;
    const int status = results.finish();
    if (options.report) {
        report();
    }
    return status;
}

// Only a terminal shows totals, and standard input can't be read twice.
void Run::startCounting()
{
    if (progress.isShown() && options.checkFile != "-") {
        KT::submit(pool, "count", countAll, makeSource(), std::ref(totals));
    }
}

void Run::fillWindow()
{
    Entry entry;
    while (!atEnd && window.size() < windowSize && interrupted() == 0) {
        if (!source->next(entry)) {
            atEnd = true;
        } else if (entry.improperLine != 0) {
            window.push_back({KT::KTFuture<Sum>(), entry.improperLine});
        } else {
            const std::string name = nameOf(entry);
            window.push_back({KT::submit(pool, name, sumOf, std::move(entry), std::cref(digest),
                                         std::ref(board), std::chrono::steady_clock::now()),
                              0});
        }
    }
}

// Prints the first result of the window, if it is there within a while.
void Run::printFront()
{
    Pending& front = window.front();
    if (front.improperLine == 0 && !front.sum.waitFor(pollMs)) {
        return;
    }
    progress.clear();
    if (front.improperLine != 0) {
        results.addImproperLine(front.improperLine);
    } else {
        const Sum sum = front.sum.get();
        ++figures.tasks;
        figures.waiting.add(sum.waitedUs);
        results.add(sum);
    }
    window.pop_front();
}

void Run::showProgress()
{
    const KT::KTThreadPoolStatus status = pool.status();
    ProgressFigures now;
    now.bytes = board.bytes;
    now.files = board.files;
    if (totals.complete) {
        now.allBytes = totals.bytes;
        now.allFiles = totals.files;
    }
    now.seconds = seconds();
    now.busy = status.busyThreads;
    now.workers = status.threads;
    flushOutput();
    progress.show(formatProgress(now));
}

void Run::report() const
{
    RunFigures all = figures;
    all.bytes = board.bytes;
    all.seconds = seconds();
    const std::string text = formatReport(all);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

// Gently, then by force: a task may hang in a read that never returns.
int Run::stopEarly(int signal)
{
    const boost::shared_ptr<KT::KTThreadPool>& core = pool.pool();
    const bool ended = core->close(false, stopMs) || core->close(true, stopMs);
    progress.clear();
    flushOutput();
    complain("interrupted after " + std::to_string(figures.tasks) + " files, " +
             formatBytes(static_cast<double>(board.bytes)) + " read in " +
             formatSeconds(seconds()));
    const int status = 128 + signal;
    if (!ended) {
        // Not even that helped; the process can't end in order while the task goes on.
        trace.reset();
        _exit(status);
    }
    return status;
}

double Run::seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
