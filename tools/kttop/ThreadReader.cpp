#include "ThreadReader.h"

#include <algorithm>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

#include "ProcText.h"

namespace {

const std::uint64_t nsASecond = 1000000000;

/// The limit of open files may be large, and this many do for a pool of thousands.
const std::size_t mostFilesToKeep = 20000;

/// For the terminal, a recording, and the folders that are read.
const std::size_t filesForOthers = 64;

/// Whether a thread that waited when its details were read has had no processor since, as most
/// threads of a large pool: then nothing else that the kernel counts has changed.
bool hasSleptSince(const WorkerReading& last, const WorkerReading& now)
{
    return last.start == now.start && last.kernelState != 'R' && last.kernelState != '?' &&
           now.slices && last.slices == now.slices && last.cpuNs == now.cpuNs &&
           last.waitNs == now.waitNs;
}

}  // namespace

ThreadReader::ThreadReader(FileDescriptor folderOfThreads, std::size_t keptFiles)
    : tasks(std::move(folderOfThreads)), mayKeep(keptFiles)
{
}

std::optional<std::string> ThreadReader::readName(int tid)
{
    const bool wasKept = threads[tid].comm.isKept();
    std::optional<std::string> name = read(tid, threads[tid].comm);
    if (!name && wasKept) {
        // Its thread has ended, and the number is another one's now.
        forget(threads.find(tid));
        name = read(tid, threads[tid].comm);
    }
    threads[tid].seen = true;
    if (name && !name->empty() && name->back() == '\n') {
        name->pop_back();
    }
    return name;
}

bool ThreadReader::readWorker(Details details, WorkerReading& worker)
{
    Thread& thread = threads[worker.tid];
    const std::optional<SchedstatText> times =
        parseSchedstat(read(worker.tid, thread.schedstat).value_or(""));
    if (times) {
        worker.cpuNs = times->cpuNs;
        worker.waitNs = times->waitNs;
        worker.slices = times->slices;
    }
    if (!readStart(thread, worker, times.has_value())) {
        return false;
    }
    if (hasSleptSince(thread.last, worker)) {
        worker.kernelState = thread.last.kernelState;
        worker.voluntary = thread.last.voluntary;
        worker.involuntary = thread.last.involuntary;
        worker.waitsIn = thread.last.waitsIn;
        return true;
    }
    worker.hasDetails = false;
    // Where the kernel doesn't tell slices, the details alone show who was awake.
    return (details == Details::known && worker.slices) || readStatus(thread, worker);
}

int ThreadReader::innermostNumber(int tid)
{
    Thread& thread = threads[tid];
    if (thread.innermost == 0) {
        const int told = parseStatus(read(tid, thread.status).value_or("")).innermost;
        thread.innermost = told != 0 ? told : tid;
    }
    return thread.innermost;
}

void ThreadReader::readDetails(WorkerReading& worker)
{
    const auto thread = threads.find(worker.tid);
    if (thread != threads.end() && thread->second.start == worker.start) {
        readStatus(thread->second, worker);
    }
}

// The start doesn't change while the number can't be another thread's. Where the kernel has no
// times in nanoseconds, the processor time is from here, too.
bool ThreadReader::readStart(Thread& thread, WorkerReading& worker, bool hasTimes)
{
    if (thread.start == 0 || !thread.comm.isKept() || !hasTimes) {
        const std::optional<StatText> stat =
            parseStat(readFile(tasks.get(), std::to_string(worker.tid) + "/stat").value_or(""));
        if (!stat) {
            return false;
        }
        thread.innermost = thread.start == stat->start ? thread.innermost : 0;
        thread.start = stat->start;
        if (!hasTimes) {
            worker.cpuNs =
                stat->cpuTicks * (nsASecond / static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK)));
        }
    }
    worker.start = thread.start;
    return true;
}

bool ThreadReader::readStatus(Thread& thread, WorkerReading& worker)
{
    const std::optional<std::string> text = read(worker.tid, thread.status);
    if (!text) {
        return false;
    }
    const StatusText status = parseStatus(*text);
    worker.kernelState = status.state;
    worker.voluntary = status.voluntary;
    worker.involuntary = status.involuntary;
    if (worker.kernelState != 'R') {
        worker.waitsIn = parseWchan(read(worker.tid, thread.wchan).value_or(""));
    }
    worker.hasDetails = true;
    thread.last = worker;
    return true;
}

std::optional<std::string> ThreadReader::read(int tid, ThreadFile& file)
{
    const bool wasKept = file.isKept();
    std::optional<std::string> text = file.read(tasks.get(), tid, kept < mayKeep);
    if (file.isKept() && !wasKept) {
        ++kept;
    }
    return text;
}

void ThreadReader::forgetUnseen()
{
    for (auto thread = threads.begin(); thread != threads.end();) {
        const auto next = std::next(thread);
        if (!thread->second.seen) {
            forget(thread);
        } else {
            thread->second.seen = false;
        }
        thread = next;
    }
}

void ThreadReader::forget(std::map<int, Thread>::iterator thread)
{
    const Thread& files = thread->second;
    for (const ThreadFile* const file :
         {&files.comm, &files.status, &files.schedstat, &files.wchan}) {
        kept -= file->isKept() ? 1 : 0;
    }
    threads.erase(thread);
}

std::size_t filesToKeep()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    limit.rlim_cur = std::max(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, mostFilesToKeep));
    setrlimit(RLIMIT_NOFILE, &limit);
    getrlimit(RLIMIT_NOFILE, &limit);
    const std::size_t all = std::min<std::size_t>(limit.rlim_cur, mostFilesToKeep);
    return all > filesForOthers ? all - filesForOthers : 0;
}
