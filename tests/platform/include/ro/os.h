/// A client's own clock, which stands still.
#pragma once

#include <cstdint>

#include <unistd.h>

namespace ro {
namespace os {

struct timeval {
    std::int32_t tv_sec;
    std::int32_t tv_usec;
};

inline timeval gettimeofday()
{
    timeval result;
    result.tv_sec = 1300000000;
    result.tv_usec = 5;
    return result;
}

inline void msleep(int milliseconds)
{
    usleep(static_cast<useconds_t>(milliseconds) * 1000);
}

}  // namespace os
}  // namespace ro
