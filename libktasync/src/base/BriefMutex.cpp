#include "BriefMutex.h"

#include "Futex.h"
#include "Pause.h"

namespace KT {
namespace detail {

namespace {

/// About a microsecond: longer than any section, unless its thread has lost the processor.
const int spins = 64;

}  // namespace

void BriefMutex::lockSlowly()
{
    for (int i = 0; i < spins; ++i) {
        pause();
        int expected = unlocked;
        if (word.load(std::memory_order_relaxed) == unlocked &&
            word.compare_exchange_strong(expected, locked, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
            return;
        }
    }
    // From here on as contended: whether others sleep, this thread can't know.
    while (word.exchange(contended, std::memory_order_acquire) != unlocked) {
        futexWait(word, contended);
    }
}

void BriefMutex::wakeOne()
{
    futexWake(word, 1);
}

}  // namespace detail
}  // namespace KT
