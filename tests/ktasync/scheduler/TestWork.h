/// Work for the tests of what carries it.
#pragma once

#include <atomic>
#include <functional>
#include <string_view>
#include <utility>

#include <ktasync/detail/Work.h>

#include "scheduler/Scheduler.h"

/// Calls a function, and counts what becomes of it.
class TestWork : public KT::detail::Work {
public:
    explicit TestWork(
        int itsNumber = 0, std::function<void()> functionToCall = [] {})
        : Work("test"), number(itsNumber), function(std::move(functionToCall))
    {
        ++alive;
    }
    ~TestWork() override { --alive; }

    void execute() override
    {
        function();
        finish();
    }
    void abandon() override
    {
        ++abandoned;
        finish();
    }
    void requestStop() override { ++stopRequests; }
    void leave() { leaveQueue(); }

    const int number;
    std::atomic<int> abandoned{0};
    std::atomic<int> stopRequests{0};
    KT::detail::Scheduler* scheduler = nullptr;
    static inline std::atomic<int> alive{0};

private:
    void finish()
    {
        if (scheduler != nullptr) {
            scheduler->workEnded();
        }
    }
    const std::function<void()> function;
};

inline int numberOf(const KT::detail::WorkPointer& work)
{
    return work ? static_cast<TestWork&>(*work).number : -1;
}
