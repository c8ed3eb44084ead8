#pragma once

#include <ktthread/KTThreadPool.h>

namespace KT {

namespace core {

/// The most workers that xIncreaseThread adds.
constexpr int growthBatch = 5;

}  // namespace core

/// What a monitor sees of its pool.
struct KTThreadPool::Load {
    int live;  ///< workers
    int busy;  ///< those that run a task
};

}  // namespace KT
