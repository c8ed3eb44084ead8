#pragma once

namespace KT {
namespace detail {

/// Tells the processor that this is a loop that waits.
inline void pause()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}

}  // namespace detail
}  // namespace KT
