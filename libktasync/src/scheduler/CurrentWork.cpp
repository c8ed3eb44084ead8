#include "CurrentWork.h"

#include <sched.h>

namespace KT {
namespace detail {

bool CurrentWork::begin(Work& work)
{
    std::uintptr_t none = 0;
    return word.compare_exchange_strong(none, reinterpret_cast<std::uintptr_t>(&work));
}

void CurrentWork::end()
{
    std::uintptr_t now = word;
    for (;;) {
        if ((now & held) != 0) {
            sched_yield();
            now = word;
        } else if (word.compare_exchange_weak(now, now & stopped)) {
            return;
        }
    }
}

void CurrentWork::requestStop()
{
    std::uintptr_t now = word;
    std::uintptr_t next = 0;
    do {
        if ((now & stopped) != 0) {
            return;
        }
        next = now == 0 ? stopped : now | stopped | held;
    } while (!word.compare_exchange_weak(now, next));
    if (now != 0) {
        reinterpret_cast<Work*>(now)->requestStop();
        word.fetch_and(~held);
    }
}

}  // namespace detail
}  // namespace KT
