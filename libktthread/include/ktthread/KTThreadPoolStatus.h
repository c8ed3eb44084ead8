/// \file
/// The figures of KTThreadPool::status.
#pragma once

namespace KT {

/// What a pool does at the moment. Each figure is exact, but they may be of slightly different
/// moments. A plain value: reading it takes no lock.
/// \code
/// const KT::KTThreadPoolStatus now = pool->status();
/// std::printf("%d of %d workers busy, %d tasks wait\n", now.busyThreads, now.threads,
///             now.queuedTasks);
/// \endcode
///
/// \ingroup ktthread
struct KTThreadPoolStatus {
    int threads;          ///< live workers
    int busyThreads;      ///< workers that run a task; workers cut off in one stay counted
    int maxThreads;       ///< the most workers that the pool may have
    int threadsToRemove;  ///< workers that may still retire
    int queuedTasks;      ///< tasks that no worker has taken yet
    char name[32];        ///< of the pool, null-terminated; empty: none
};

}  // namespace KT
