#include "ProcessReader.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>

#include "Text.h"
#include "ThreadName.h"

namespace {

const std::uint64_t nsASecond = 1000000000;

/// The limit of open files may be large, and this many do for a pool of thousands.
const std::size_t mostFilesToKeep = 20000;

/// For the terminal, a recording, and the folders that are read.
const std::size_t filesForOthers = 64;

std::string describe(const ProcessIdentity& process)
{
    return "process " + std::to_string(process.pid) + " (" + inAscii(process.name) + ")";
}

std::string why(int pid, int error)
{
    const std::string process = "process " + std::to_string(pid);
    if (error == ENOENT || error == ESRCH) {
        return "there is no " + process;
    }
    return process + " may not be read: " + std::strerror(error);
}

int numberIn(const char* name)
{
    int number = 0;
    const char* const end = name + std::strlen(name);
    const auto [rest, error] = std::from_chars(name, end, number);
    return error == std::errc() && rest == end ? number : 0;
}

/// Whether a thread that waited when its details were read has had no processor since, as most
/// threads of a large pool: then nothing else that the kernel counts has changed.
bool hasSleptSince(const WorkerReading& last, const WorkerReading& now)
{
    return last.start == now.start && last.kernelState != 'R' && last.kernelState != '?' &&
           now.slices && last.slices == now.slices && last.cpuNs == now.cpuNs &&
           last.waitNs == now.waitNs;
}

Sample startOfSample()
{
    using std::chrono::duration_cast;
    Sample sample;
    sample.atNs =
        duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    sample.wallClockMs = duration_cast<std::chrono::milliseconds>(
                             std::chrono::system_clock::now().time_since_epoch())
                             .count();
    return sample;
}

}  // namespace

ProcessReader::ProcessReader(const std::string& procfs, int pid, std::size_t keptFiles)
    : root(procfs), mayKeep(keptFiles)
{
    identity.pid = pid;
    const std::string path = root + '/' + std::to_string(pid);
    tasks = FileDescriptor(open((path + "/task").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!tasks.isOpen()) {
        throw ProcessError(why(pid, errno));
    }
    const std::optional<std::string> status = readFile(AT_FDCWD, path + "/status");
    if (!status) {
        throw ProcessError(why(pid, errno));
    }
    const int group = parseStatus(*status).threadGroup;
    if (group != pid && group != 0) {
        throw ProcessError(std::to_string(pid) + " is a thread of process " +
                           std::to_string(group) + "; give that");
    }
    const StatText stat = readStat();
    identity.start = stat.start;
    identity.name = stat.name;
    checkStillThere(listThreads().size());
}

// By its path, which leads to another process once the pid is in use again.
StatText ProcessReader::readStat() const
{
    const std::string path = root + '/' + std::to_string(identity.pid) + "/stat";
    const std::optional<std::string> text = readFile(AT_FDCWD, path);
    if (!text) {
        const bool watched = identity.start != 0;
        if (watched && (errno == ENOENT || errno == ESRCH)) {
            throw ProcessEnded(describe(identity) + " has ended");
        }
        throw ProcessError(why(identity.pid, errno));
    }
    const std::optional<StatText> stat = parseStat(*text);
    if (!stat) {
        throw ProcessError(path + " is not what proc(5) says");
    }
    return *stat;
}

void ProcessReader::checkStillThere(std::size_t threadsListed) const
{
    const StatText stat = readStat();
    if (stat.start != identity.start) {
        throw ProcessEnded(describe(identity) + " has ended; " + std::to_string(identity.pid) +
                           " is another process now (" + inAscii(stat.name) + ")");
    }
    // The main thread may end before the others do.
    if ((stat.state == 'Z' || stat.state == 'X') && threadsListed <= 1) {
        throw ProcessEnded(describe(identity) + " has ended");
    }
}

std::vector<int> ProcessReader::listThreads() const
{
    std::vector<int> tids;
    // A folder of its own each time: rewinding one shows the threads of before.
    FileDescriptor opened(openat(tasks.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened.isOpen()) {
        return tids;  // checkStillThere says why
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(fdopendir(opened.get()), closedir);
    if (!listing) {
        return tids;
    }
    opened.release();
    while (const dirent* const entry = readdir(listing.get())) {
        if (const int tid = numberIn(entry->d_name); tid > 0) {
            tids.push_back(tid);
        }
    }
    std::sort(tids.begin(), tids.end());
    return tids;
}

Sample ProcessReader::read(Details details)
{
    Sample sample = startOfSample();
    const std::vector<int> tids = listThreads();
    sample.workers.reserve(tids.size());
    for (const int tid : tids) {
        readThread(tid, details, sample);
    }
    // After all was read: the threads were those of the process that is still there.
    checkStillThere(tids.size());
    forgetUnseen();
    return sample;
}

// A thread that ends while it is read is left out.
void ProcessReader::readThread(int tid, Details details, Sample& sample)
{
    // A pool's worker is never the main thread, but that of a child may have inherited a worker's
    // name.
    if (tid == identity.pid) {
        ++sample.otherThreads;
        return;
    }
    const std::optional<std::string> name = readName(tid);
    if (!name) {
        return;
    }
    std::optional<ThreadName> parsed = parseThreadName(*name);
    if (!parsed) {
        ++sample.otherThreads;
        return;
    }
    WorkerReading worker;
    worker.tid = tid;
    worker.state = parsed->state;
    worker.task = std::move(parsed->task);
    if (readWorker(details, threads[tid], worker)) {
        sample.workers.push_back(std::move(worker));
    }
}

std::optional<std::string> ProcessReader::readName(int tid)
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

bool ProcessReader::readWorker(Details details, Thread& thread, WorkerReading& worker)
{
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

void ProcessReader::readDetails(WorkerReading& worker)
{
    const auto thread = threads.find(worker.tid);
    if (thread != threads.end() && thread->second.start == worker.start) {
        readStatus(thread->second, worker);
    }
}

// The start doesn't change while the number can't be another thread's. Where the kernel has no
// times in nanoseconds, the processor time is from here, too.
bool ProcessReader::readStart(Thread& thread, WorkerReading& worker, bool hasTimes)
{
    if (thread.start == 0 || !thread.comm.isKept() || !hasTimes) {
        const std::optional<StatText> stat =
            parseStat(readFile(tasks.get(), std::to_string(worker.tid) + "/stat").value_or(""));
        if (!stat) {
            return false;
        }
        thread.start = stat->start;
        if (!hasTimes) {
            worker.cpuNs =
                stat->cpuTicks * (nsASecond / static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK)));
        }
    }
    worker.start = thread.start;
    return true;
}

bool ProcessReader::readStatus(Thread& thread, WorkerReading& worker)
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

std::optional<std::string> ProcessReader::read(int tid, ThreadFile& file)
{
    const bool wasKept = file.isKept();
    std::optional<std::string> text = file.read(tasks.get(), tid, kept < mayKeep);
    if (file.isKept() && !wasKept) {
        ++kept;
    }
    return text;
}

void ProcessReader::forgetUnseen()
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

void ProcessReader::forget(std::map<int, Thread>::iterator thread)
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
