#pragma once

#include <mutex>

namespace KT {

class KTTask;

namespace core {

/// The mutex that guards a task's link to its worker: one for many tasks, because a task has no
/// room for one of its own. Valid until the process has ended.
std::mutex& taskLinkMutex(const KTTask* task);

}  // namespace core
}  // namespace KT
