/// Memory for jobs, used again.
#pragma once

#include <cstddef>

namespace KT {
namespace detail {

/// Room for a job. The thread that makes a job is seldom the one that destroys it; the C library
/// would carry each block back by a lock, here sixteen at a time change threads by one exchange.
/// At most 224 KiB lie ready in the process, and 7 KiB more in each thread. Throws std::bad_alloc.
/// Any thread may call these, in a child of the process (fork) too.
void* takeBlock(std::size_t size);

/// `size` as it was taken.
void giveBlock(void* block, std::size_t size);

}  // namespace detail
}  // namespace KT
