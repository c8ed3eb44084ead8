#pragma once

#include <atomic>
#include <cstdint>

namespace KT::core {

/// While it lives, the calling thread is in the process's map of workers, where kttop finds its
/// pool (WorkerMapLayout.h). The first one makes the map, which stays until the process ends. If
/// there is no memory, descriptor or place for it, the thread isn't in the map, and nothing else
/// changes.
///
/// Takes no locks and throws nothing. A cancellation point where it makes a map; its destructor is
/// none.
class InWorkerMap {
public:
    /// \param pool  the pool's name, up to 31 characters; empty: it does nothing
    explicit InWorkerMap(const char* pool);
    ~InWorkerMap();
    InWorkerMap(const InWorkerMap&) = delete;
    InWorkerMap& operator=(const InWorkerMap&) = delete;

private:
    std::atomic<std::int32_t>* taken = nullptr;  ///< the thread's number in the map
};

}  // namespace KT::core
