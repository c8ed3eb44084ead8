/// The events of a timeline as text.
#pragma once

#include <chrono>
#include <string>

#include <sys/types.h>

#include <ktthread/KTThreadPoolStatus.h>

#include "../scheduler/Observers.h"

namespace KT {
namespace detail {

/// Makes the events of one process, each a JSON object in the trace-event format; their times are
/// counted from when this was made. Any thread may use it.
class TraceEvents {
public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;

    /// `pool` is its name, empty if it has none.
    TraceEvents(pid_t processOfEvents, std::string pool);

    std::string processName() const;
    std::string laneName(pid_t thread) const;
    /// A slice, or a mark if the task has not run.
    std::string task(const TaskReport& report, pid_t thread, Time end) const;
    std::string workers(Time now, const KTThreadPoolStatus& status) const;
    std::string queue(Time now, const KTThreadPoolStatus& status) const;

private:
    std::string beginning(const char* kind, const std::string& quotedName) const;
    /// The name of a lane or a track, in quotes: with that of the pool, if it has one.
    std::string track(const char* what) const;
    std::string at(Time time) const;

    const pid_t process;
    const std::string poolName;
    const Time start;
};

}  // namespace detail
}  // namespace KT
