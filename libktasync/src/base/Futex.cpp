#include "Futex.h"

#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace KT {
namespace detail {

namespace {

void futex(std::atomic<int>& word, int operation, int value, const timespec* time)
{
    syscall(SYS_futex, reinterpret_cast<int*>(&word), operation | FUTEX_PRIVATE_FLAG, value, time,
            nullptr, 0);
}

}  // namespace

void futexWait(std::atomic<int>& word, int value)
{
    futex(word, FUTEX_WAIT, value, nullptr);
}

void futexWaitFor(std::atomic<int>& word, int value, std::chrono::nanoseconds time)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    timespec limit{};
    limit.tv_sec = seconds.count();
    limit.tv_nsec = (time - seconds).count();
    futex(word, FUTEX_WAIT, value, &limit);
}

void futexWake(std::atomic<int>& word, int waiters)
{
    futex(word, FUTEX_WAKE, waiters, nullptr);
}

}  // namespace detail
}  // namespace KT
