#include <ktasync/detail/CurrentWork.h>

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

Work* CurrentWork::stopAndHold()
{
    std::uintptr_t now = word;
    std::uintptr_t next = 0;
    do {
        if ((now & stopped) != 0) {
            return nullptr;
        }
        next = now == 0 ? stopped : now | stopped | held;
    } while (!word.compare_exchange_weak(now, next));
    return reinterpret_cast<Work*>(now);  // NOLINT(performance-no-int-to-ptr)
}

void CurrentWork::release()
{
    word.fetch_and(~held);
}

void CurrentWork::requestStop()
{
    if (Work* const work = stopAndHold()) {
        work->requestStop();
        release();
    }
}

}  // namespace detail
}  // namespace KT
