#include "Run.h"

#include <stdexcept>
#include <utility>

#include <unistd.h>

#include <boost/make_shared.hpp>

#include "CheckList.h"
#include "FileList.h"
#include "Interrupt.h"
#include "Output.h"

namespace {

/// Tasks in flight: enough to keep all workers busy while the first one is a large file.
const std::size_t windowSize = 2048;

/// How often a wait looks for a lost wake-up, for Ctrl-C and for the progress line.
const int pollMs = 100;

/// How long an interrupted run waits for its tasks, before it cuts them off, and after.
const int stopMs = 1000;

/// The pool grows when tasks come in, never by a count of ended ones.
const int monitorPeriod = 0;

}  // namespace

Run::Run(const Options& chosen)
    : options(chosen),
      digest(options.algorithm),
      start(std::chrono::steady_clock::now()),
      results(options, digest),
      source(makeSource()),
      pool(new KT::KTThreadPool(options.threads, options.maxThreads, monitorPeriod, 0, 0))
{
    try {
        pool->init(options.threads, options.maxThreads, monitorPeriod, 0, 0);
    } catch (...) {
        pool->close();
        throw;
    }
}

Run::~Run()
{
    pool->close();
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
        if (!printFront()) {
            // A wake-up may have been lost on the way; whoever waits makes up for it.
            pool->wake();
        }
        if (progress.isDue()) {
            showProgress();
        }
    }
    progress.clear();
    figures.mostWorkers = pool->status().threads;
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
        submit(boost::make_shared<CountTask>(makeSource(), totals));
    }
}

void Run::fillWindow()
{
    Entry entry;
    while (!atEnd && window.size() < windowSize && interrupted() == 0) {
        if (!source->next(entry)) {
            atEnd = true;
        } else if (entry.improperLine != 0) {
            window.push_back({nullptr, entry.improperLine});
        } else {
            window.push_back({boost::make_shared<SumTask>(std::move(entry), digest, board), 0});
            submit(window.back().task);
        }
    }
}

void Run::submit(const boost::shared_ptr<KT::KTTask>& task)
{
    if (!pool->enqueue(task)) {
        throw std::runtime_error("the pool refuses a task");
    }
}

// Prints the first result of the window, once it is there; false if it wasn't within a while.
bool Run::printFront()
{
    const Pending front = window.front();
    if (front.task && !front.task->isDone() && !front.task->waitFor(pollMs)) {
        return false;
    }
    window.pop_front();
    progress.clear();
    if (front.task) {
        ++figures.tasks;
        figures.waiting.add(front.task->getIdleTime());
        results.add(*front.task);
    } else {
        results.addImproperLine(front.improperLine);
    }
    return true;
}

void Run::showProgress()
{
    const KT::KTThreadPoolStatus status = pool->status();
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
    const bool ended = pool->close(false, stopMs) || pool->close(true, stopMs);
    progress.clear();
    flushOutput();
    complain("interrupted after " + std::to_string(figures.tasks) + " files, " +
             formatBytes(static_cast<double>(board.bytes)) + " read in " +
             formatSeconds(seconds()));
    const int status = 128 + signal;
    if (!ended) {
        // Not even that helped; the process can't end in order while the task goes on.
        _exit(status);
    }
    return status;
}

double Run::seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
