#include "ThreadStates.h"

#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace KT {
namespace detail {

namespace {

void close(int& descriptor)
{
    if (descriptor >= 0) {
        ::close(descriptor);
        descriptor = -1;
    }
}

}  // namespace

ThreadStates::~ThreadStates()
{
    closeAll();
}

void ThreadStates::closeAll()
{
    for (File& file : files) {
        close(file.descriptor);
        file.thread = 0;
    }
}

ThreadStates::File& ThreadStates::fileOf(pid_t thread)
{
    File& file = files[static_cast<std::size_t>(thread) % files.size()];
    if (file.thread != thread || file.descriptor < 0) {
        close(file.descriptor);
        char path[48];
        std::snprintf(path, sizeof path, "/proc/self/task/%d/stat", static_cast<int>(thread));
        file.descriptor = open(path, O_RDONLY | O_CLOEXEC);
        file.thread = thread;
    }
    return file;
}

bool ThreadStates::isRunnable(const File& file)
{
    // "1234 (its name) R ...": the name may contain anything, and has 15 bytes at most.
    char text[64];
    const ssize_t length = pread(file.descriptor, text, sizeof text - 1, 0);
    if (length <= 0) {
        return false;
    }
    text[length] = '\0';
    const char* const nameEnd = std::strrchr(text, ')');
    return nameEnd != nullptr && std::strncmp(nameEnd, ") R", 3) == 0;
}

bool ThreadStates::isRunnable(pid_t thread)
{
    return isRunnable(fileOf(thread));
}

}  // namespace detail
}  // namespace KT
