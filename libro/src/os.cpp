#include <ro/os.h>

#include <cerrno>
#include <ctime>

#include <sys/time.h>

namespace ro {
namespace os {

timeval gettimeofday()
{
    ::timeval now{};
    ::gettimeofday(&now, nullptr);
    timeval result;
    result.tv_sec = static_cast<std::int32_t>(now.tv_sec);
    result.tv_usec = static_cast<std::int32_t>(now.tv_usec);
    return result;
}

void msleep(int milliseconds)
{
    if (milliseconds <= 0) {
        return;
    }
    timespec left{};
    left.tv_sec = milliseconds / 1000;
    left.tv_nsec = (milliseconds % 1000) * 1000000L;
    while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace os
}  // namespace ro
