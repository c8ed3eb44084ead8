/// What a future has of its task.
#pragma once

#include <atomic>
#include <cstdint>

#include <boost/smart_ptr/intrusive_ptr.hpp>

namespace KT {
namespace detail {

/// A share in a job, with the right to take its result once. The share itself lasts for as long as
/// this object, so that other threads may be at the job while the result is taken. Destroyed
/// without that, it has the job forget the result.
///
/// `job`, `isTaken` and `isEmpty` may be called by several threads at once, also while one calls
/// `take` or `setTaken`; nothing else may happen at the same time as the rest. Nothing here blocks.
template <typename JobType>
class FutureShare {
public:
    FutureShare() = default;
    explicit FutureShare(boost::intrusive_ptr<JobType> ofJob)
        : word(reinterpret_cast<std::uintptr_t>(ofJob.detach()))
    {
    }
    FutureShare(FutureShare&& other) noexcept : word(other.give()) {}
    FutureShare& operator=(FutureShare&& other) noexcept
    {
        const FutureShare released(static_cast<FutureShare&&>(*this));
        word.store(other.give(), std::memory_order_relaxed);
        return *this;
    }
    ~FutureShare()
    {
        const boost::intrusive_ptr<JobType> released(job(), false);
        if (released && !isTaken()) {
            released->forsake();
        }
    }

    /// Null if empty.
    JobType* job() const
    {
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        return reinterpret_cast<JobType*>(word.load(std::memory_order_relaxed) & ~taken);
    }
    bool isEmpty() const { return job() == nullptr; }

    /// Whether the result was taken, or is left to another share.
    bool isTaken() const { return (word.load(std::memory_order_relaxed) & taken) != 0; }
    void setTaken()
    {
        word.store(word.load(std::memory_order_relaxed) | taken, std::memory_order_relaxed);
    }

    /// As ResultJob::take. Only for a share that isn't empty, nor taken.
    decltype(auto) take()
    {
        setTaken();
        return job()->take();
    }

private:
    static constexpr std::uintptr_t taken = 1;  ///< the low bit of the address

    std::uintptr_t give()
    {
        const std::uintptr_t given = word.load(std::memory_order_relaxed);
        word.store(0, std::memory_order_relaxed);
        return given;
    }

    std::atomic<std::uintptr_t> word{0};
};

}  // namespace detail
}  // namespace KT
