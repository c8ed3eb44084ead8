#pragma once

#include <ktthread/KTThreadPool.h>

namespace KT {

/// What a monitor sees of its pool.
struct KTThreadPool::Load {
    int live;  ///< workers
    int busy;  ///< those that run a task
};

}  // namespace KT
