#include "TraceEvents.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <errno.h>

#include "TraceFile.h"

namespace KT {
namespace detail {

namespace {

const char* nameOf(Outcome outcome)
{
    switch (outcome) {
        case Outcome::done: return "done";
        case Outcome::failed: return "failed";
        default: return "cancelled";
    }
}

/// Microseconds, in which the format counts.
std::string inMicroseconds(TraceEvents::Clock::duration time)
{
    char text[48];
    std::snprintf(text, sizeof text, "%.3f",
                  std::chrono::duration<double, std::micro>(time).count());
    return text;
}

}  // namespace

TraceEvents::TraceEvents(pid_t processOfEvents, std::string pool)
    : process(processOfEvents), poolName(std::move(pool)), start(Clock::now())
{
}

std::string TraceEvents::track(const char* what) const
{
    return quoted(poolName.empty() ? what : poolName + ' ' + what);
}

std::string TraceEvents::beginning(const char* kind, const std::string& quotedName) const
{
    return std::string("{\"ph\":\"") + kind + "\",\"name\":" + quotedName +
           ",\"pid\":" + std::to_string(process);
}

std::string TraceEvents::at(Time time) const
{
    return ",\"ts\":" + inMicroseconds(time - start);
}

std::string TraceEvents::processName() const
{
    return beginning("M", "\"process_name\"") +
           ",\"args\":{\"name\":" + quoted(program_invocation_short_name) + "}}";
}

std::string TraceEvents::laneName(pid_t thread) const
{
    return beginning("M", "\"thread_name\"") + ",\"tid\":" + std::to_string(thread) +
           ",\"args\":{\"name\":" + track("worker") + "}}";
}

std::string TraceEvents::task(const TaskReport& report, pid_t thread, Time end) const
{
    std::string text = beginning(report.hasRun ? "X" : "i", quoted(report.name)) +
                       ",\"tid\":" + std::to_string(thread) + at(end - report.ran);
    text += report.hasRun ? ",\"dur\":" + inMicroseconds(report.ran) : ",\"s\":\"t\"";
    return text + ",\"args\":{\"waited_us\":" + inMicroseconds(report.waited) + ",\"outcome\":\"" +
           nameOf(report.outcome) + "\"}}";
}

std::string TraceEvents::workers(Time now, const KTThreadPoolStatus& status) const
{
    return beginning("C", track("workers")) + at(now) +
           ",\"args\":{\"busy\":" + std::to_string(status.busyThreads) +
           ",\"idle\":" + std::to_string(std::max(status.threads - status.busyThreads, 0)) + "}}";
}

std::string TraceEvents::queue(Time now, const KTThreadPoolStatus& status) const
{
    return beginning("C", track("queue")) + at(now) +
           ",\"args\":{\"queued\":" + std::to_string(status.queuedTasks) + "}}";
}

}  // namespace detail
}  // namespace KT
