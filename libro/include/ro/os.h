/// \file
/// Operating-system utilities: the wall clock and a sleep.
/// Every function may be called from any thread.
///
/// \ingroup ro
#pragma once

#include <cstdint>

#include <ro/export.h>

namespace ro {
namespace os {

/// A point in wall-clock time, or a duration: whole seconds (since the epoch), then microseconds.
/// A value, as safe as two numbers.
/// \code
/// const ro::os::timeval start = ro::os::gettimeofday();
/// work();
/// const std::int32_t seconds = ro::os::gettimeofday().tv_sec - start.tv_sec;
/// \endcode
///
/// \ingroup ro
struct timeval {
    std::int32_t tv_sec;   ///< seconds since 1970-01-01 00:00:00 UTC; wraps in January 2038
    std::int32_t tv_usec;  ///< microseconds, 0 to 999999
};

/// The wall-clock time now, as gettimeofday(2) gives it. Does not block, never fails.
///
/// \return  seconds and microseconds since 1970; it jumps when the clock is set
/// \ingroup ro
RO_EXPORT timeval gettimeofday();

/// Sleeps at least `milliseconds`; 0 or less returns at once. A signal that the caller handles
/// does not shorten the sleep. A cancellation point of POSIX threads. Throws nothing.
///
/// \param milliseconds  how long
/// \ingroup ro
RO_EXPORT void msleep(int milliseconds);

}  // namespace os
}  // namespace ro
