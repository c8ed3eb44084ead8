#include "ProcessReader.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <memory>
#include <utility>

#include <dirent.h>
#include <fcntl.h>

#include "Text.h"
#include "ThreadName.h"

namespace {

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

FileDescriptor openTasks(const std::string& procfs, int pid)
{
    const std::string path = procfs + '/' + std::to_string(pid) + "/task";
    FileDescriptor opened(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened.isOpen()) {
        throw ProcessError(why(pid, errno));
    }
    return opened;
}

int numberIn(const char* name)
{
    int number = 0;
    const char* const end = name + std::strlen(name);
    const auto [rest, error] = std::from_chars(name, end, number);
    return error == std::errc() && rest == end ? number : 0;
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
    : root(procfs), threads(openTasks(procfs, pid), keptFiles)
{
    identity.pid = pid;
    const std::string path = root + '/' + std::to_string(pid);
    const std::optional<std::string> status = readFile(AT_FDCWD, path + "/status");
    if (!status) {
        throw ProcessError(why(pid, errno));
    }
    const StatusText text = parseStatus(*status);
    const int group = text.threadGroup;
    if (group != pid && group != 0) {
        throw ProcessError(std::to_string(pid) + " is a thread of process " +
                           std::to_string(group) + "; give that");
    }
    const StatText stat = readStat();
    identity.start = stat.start;
    identity.name = stat.name;
    checkStillThere(listThreads().size());
    pools.emplace(path, text.innermost != 0 ? text.innermost : pid);
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
    FileDescriptor opened(openat(threads.folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
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
    pools->read(sample.atNs);
    sample.workers.reserve(tids.size());
    for (const int tid : tids) {
        readThread(tid, details, sample);
    }
    // After all was read: the threads were those of the process that is still there.
    checkStillThere(tids.size());
    threads.forgetUnseen();
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
    const std::optional<std::string> name = threads.readName(tid);
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
    if (threads.readWorker(details, worker)) {
        worker.pool = pools->of(pools->isEmpty() ? tid : threads.innermostNumber(tid));
        sample.workers.push_back(std::move(worker));
    }
}

void ProcessReader::readDetails(WorkerReading& worker)
{
    threads.readDetails(worker);
}
