#include "Output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

void requireWritten(bool written)
{
    if (!written) {
        throw OutputError(std::string("write error: ") + std::strerror(errno), errno == EPIPE);
    }
}

}  // namespace

void print(const std::string& text)
{
    requireWritten(std::fwrite(text.data(), 1, text.size(), stdout) == text.size());
}

void flushOutput()
{
    requireWritten(std::fflush(stdout) == 0);
}

void complain(const std::string& message)
{
    const std::string line = "ktsum: " + message + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}
