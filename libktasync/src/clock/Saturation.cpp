#include "Saturation.h"

#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace KT {
namespace detail {

namespace {

/// The part of the level that a look makes up: about as many looks count.
const double weight = 1.0 / 8;

}  // namespace

Saturation::~Saturation()
{
    if (descriptor >= 0) {
        close(descriptor);
    }
}

// "0.20 0.18 0.12 3/80 11206": three of 80 threads are runnable.
int Saturation::runnableIn(const char* text)
{
    const char* const slash = std::strchr(text, '/');
    if (slash == nullptr) {
        return 0;
    }
    const char* begin = slash;
    while (begin != text && begin[-1] >= '0' && begin[-1] <= '9') {
        --begin;
    }
    return std::atoi(begin);
}

int Saturation::runnable()
{
    if (descriptor < 0) {
        descriptor = open("/proc/loadavg", O_RDONLY | O_CLOEXEC);
        processors = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    }
    char text[64];
    const ssize_t length = descriptor < 0 ? 0 : pread(descriptor, text, sizeof text - 1, 0);
    if (length <= 0) {
        return 0;
    }
    text[length] = '\0';
    return runnableIn(text);
}

bool Saturation::look()
{
    const int others = runnable() - 1;
    const bool isBusy = others >= 1 && others >= processors;
    level += ((isBusy ? 1 : 0) - level) * weight;
    return level > 0.5;
}

}  // namespace detail
}  // namespace KT
