/// Stamps of the wall clock and the durations between them. They have 32 bits and wrap, so they are
/// computed as unsigned numbers: signed ones must not overflow.
#pragma once

#include <cstdint>

#include <ro/os.h>

namespace KT::core {

inline std::int32_t wrappingSum(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

/// Microseconds from one stamp to another, wrapping at 2^31.
inline std::int32_t microsecondsBetween(const ro::os::timeval& start, const ro::os::timeval& end)
{
    const std::uint32_t seconds =
        static_cast<std::uint32_t>(end.tv_sec) - static_cast<std::uint32_t>(start.tv_sec);
    const std::uint32_t microseconds =
        static_cast<std::uint32_t>(end.tv_usec) - static_cast<std::uint32_t>(start.tv_usec);
    return static_cast<std::int32_t>(microseconds + seconds * 1000000U);
}

// A task may be reported while its body stamps it. Each half of a stamp is read and written
// atomically; a report made in between may show halves of two stamps.

inline void stamp(ro::os::timeval& field)
{
    const ro::os::timeval now = ro::os::gettimeofday();
    __atomic_store_n(&field.tv_sec, now.tv_sec, __ATOMIC_RELAXED);
    __atomic_store_n(&field.tv_usec, now.tv_usec, __ATOMIC_RELAXED);
}

inline ro::os::timeval readStamp(const ro::os::timeval& field)
{
    ro::os::timeval value;
    value.tv_sec = __atomic_load_n(&field.tv_sec, __ATOMIC_RELAXED);
    value.tv_usec = __atomic_load_n(&field.tv_usec, __ATOMIC_RELAXED);
    return value;
}

}  // namespace KT::core
