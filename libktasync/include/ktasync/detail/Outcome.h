#pragma once

namespace KT {
namespace detail {

/// What became of a task.
enum class Outcome {
    done,
    failed,
    cancelled,  ///< by a client, or by the callable itself
    lost,       ///< dropped or cut off by the pool, which is about to stop or has done so
};

}  // namespace detail
}  // namespace KT
