/// What the library's names for threads say.
#pragma once

#include <optional>
#include <string>

#include "Sample.h"

/// The bytes that the kernel keeps of a thread's name.
const std::size_t keptBytes = 15;

/// The bytes that it keeps of a task's name, behind "KTTask: ".
const std::size_t keptTaskBytes = 7;

struct ThreadName {
    WorkerState state;
    std::string task;
};

/// The name as the kernel has it; nothing if it is no worker's.
///
/// "KTTask: image-r" may run or have just finished: it counts as running.
std::optional<ThreadName> parseThreadName(const std::string& name);

/// The state with that name; nothing if there is none.
std::optional<WorkerState> stateNamed(const std::string& name);
