/// What the calling thread is in.
#pragma once

#include <ktasync/detail/Job.h>

namespace KT {
namespace detail {

/// Of each thread.
struct CurrentJob {
    static thread_local Job* innermost;
    /// Whether the thread is one that shows what it does by its name: a worker, not a client's.
    static thread_local bool showsName;
};

}  // namespace detail
}  // namespace KT
