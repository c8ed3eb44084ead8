/// A lock that makes none of the calls that the tests observe or record.
#pragma once

#include <atomic>

class SpinLock {
public:
    void lock()
    {
        while (taken.exchange(true, std::memory_order_acquire)) {
        }
    }
    void unlock() { taken.store(false, std::memory_order_release); }

private:
    std::atomic<bool> taken{false};
};
