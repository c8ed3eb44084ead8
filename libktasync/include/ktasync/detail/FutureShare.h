/// What a future has of its task.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include <boost/smart_ptr/intrusive_ptr.hpp>

namespace KT {
namespace detail {

/// A share in a job, with the right to take its result once. The share itself lasts for as long as
/// this object, so that other threads may be at the job while the result is taken. Destroyed
/// without that, it has the job forget the result.
///
/// `job` and `untaken` may be called by several threads at once, also while one calls `take` or
/// `setTaken`; nothing else may happen at the same time as the rest. Nothing here blocks.
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
        const FutureShare released(std::move(*this));
        word.store(other.give(), std::memory_order_relaxed);
        return *this;
    }
    ~FutureShare()
    {
        if (const std::uintptr_t last = load()) {
            const boost::intrusive_ptr<JobType> released(jobIn(last), false);
            if ((last & taken) == 0) {
                released->forsake();
            }
        }
    }

    /// Null if empty.
    JobType* job() const { return jobIn(load()); }
    /// Null also if the result was taken, or is left to another share.
    JobType* untaken() const
    {
        const std::uintptr_t now = load();
        return (now & taken) == 0 ? jobIn(now) : nullptr;
    }
    bool isEmpty() const { return load() == 0; }

    void setTaken() { word.store(load() | taken, std::memory_order_relaxed); }

    /// As ResultJob::take. Only for a share that isn't empty, nor taken.
    decltype(auto) take()
    {
        JobType& ended = *job();
        setTaken();
        return ended.take();
    }

private:
    static constexpr std::uintptr_t taken = 1;  ///< the low bit of the address

    static JobType* jobIn(std::uintptr_t of)
    {
        return reinterpret_cast<JobType*>(of & ~taken);  // NOLINT(performance-no-int-to-ptr)
    }

    std::uintptr_t load() const { return word.load(std::memory_order_relaxed); }
    std::uintptr_t give()
    {
        const std::uintptr_t given = load();
        word.store(0, std::memory_order_relaxed);
        return given;
    }

    std::atomic<std::uintptr_t> word{0};
};

}  // namespace detail
}  // namespace KT
