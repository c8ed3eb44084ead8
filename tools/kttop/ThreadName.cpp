#include "ThreadName.h"

#include <algorithm>

namespace {

const std::string taskPrefix = "KTTask: ";
const std::string runningSuffix = " [running]";
const std::string finishedSuffix = " [finished]";

bool startsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

/// Bytes at the end of `text` that the suffix may begin with. A name shorter than what the kernel
/// keeps was not cut: it ends in all of the suffix or in none of it.
std::size_t suffixBytes(const std::string& text, const std::string& suffix, bool cut)
{
    const std::size_t shortest = cut ? 1 : suffix.size();
    for (std::size_t n = std::min(suffix.size(), text.size()); n >= shortest; --n) {
        if (text.compare(text.size() - n, n, suffix, 0, n) == 0) {
            return n;
        }
    }
    return 0;
}

ThreadName parseTask(std::string text, bool cut)
{
    const std::size_t running = suffixBytes(text, runningSuffix, cut);
    const std::size_t finished = suffixBytes(text, finishedSuffix, cut);
    text.resize(text.size() - std::max(running, finished));
    return {finished > running ? WorkerState::finished : WorkerState::running, text};
}

}  // namespace

std::optional<ThreadName> parseThreadName(const std::string& name)
{
    if (startsWith(name, taskPrefix)) {
        return parseTask(name.substr(taskPrefix.size()), name.size() == keptBytes);
    }
    if (startsWith(name, "KTThread [sleep")) {
        return ThreadName{WorkerState::sleeping, ""};
    }
    if (name == "KTThread [idle]") {
        return ThreadName{WorkerState::idle, ""};
    }
    if (name == "KTThread [new]") {
        return ThreadName{WorkerState::fresh, ""};
    }
    return std::nullopt;
}

const char* nameOf(WorkerState state)
{
    switch (state) {
        case WorkerState::running: return "running";
        case WorkerState::finished: return "finished";
        case WorkerState::idle: return "idle";
        case WorkerState::fresh: return "new";
        case WorkerState::sleeping: break;
    }
    return "sleeping";
}

std::optional<WorkerState> stateNamed(const std::string& name)
{
    for (const WorkerState state : {WorkerState::running, WorkerState::finished, WorkerState::idle,
                                    WorkerState::fresh, WorkerState::sleeping}) {
        if (name == nameOf(state)) {
            return state;
        }
    }
    return std::nullopt;
}
