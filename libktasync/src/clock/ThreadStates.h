/// What threads of this process do, as the kernel sees it.
#pragma once

#include <array>

#include <sys/types.h>

namespace KT {
namespace detail {

/// Reads the state of threads from /proc. Keeps a few of the files open, since a look at an open
/// one costs a third. For one thread at a time.
class ThreadStates {
public:
    ThreadStates() = default;
    ~ThreadStates();
    ThreadStates(const ThreadStates&) = delete;
    ThreadStates& operator=(const ThreadStates&) = delete;

    /// Whether `thread` computes, or waits for a processor. False if it is blocked, and if nothing
    /// can be read: a pool then grows as if all its tasks were blocked. Processor clocks can't tell
    /// a thread that waits for a processor from one that is blocked.
    bool isRunnable(pid_t thread);

    void closeAll();

private:
    struct File {
        pid_t thread = 0;
        int descriptor = -1;
    };
    File& fileOf(pid_t thread);
    static bool isRunnable(const File& file);

    std::array<File, 32> files;
};

}  // namespace detail
}  // namespace KT
