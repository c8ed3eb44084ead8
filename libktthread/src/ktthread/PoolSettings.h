#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <ktthread/KTThreadPool.h>
#include <ktthread/KTThreadPoolStatus.h>

namespace KT {

/// What the owner of a pool has set.
struct KTThreadPool::Settings {
    /// In place of a size: that of KTThread::setStackSize.
    static constexpr std::size_t ofTheProcess = SIZE_MAX;

    /// Ends with a null; empty: none. Written before init. It comes first: the probes and
    /// gdb take the address of the settings for that of the name.
    char name[sizeof(KTThreadPoolStatus::name)] = {};
    std::atomic<std::size_t> stackSize{ofTheProcess};
    std::size_t stackSizeOr(std::size_t usual) const
    {
        const std::size_t size = stackSize;
        return size == ofTheProcess ? usual : size;
    }
    std::atomic<Messages> messages{Messages::console};
};

}  // namespace KT
