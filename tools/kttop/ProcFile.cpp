#include "ProcFile.h"

#include <fcntl.h>

namespace {

std::optional<std::string> readAll(int file)
{
    thread_local std::string buffer(4096, '\0');
    for (;;) {
        const ssize_t got = pread(file, buffer.data(), buffer.size(), 0);
        if (got < 0) {
            return std::nullopt;
        }
        // A file that fills the buffer may go on; these are written in one piece, so one read is
        // all.
        if (static_cast<std::size_t>(got) < buffer.size()) {
            return buffer.substr(0, static_cast<std::size_t>(got));
        }
        buffer.resize(2 * buffer.size());
    }
}

}  // namespace

std::optional<std::string> ThreadFile::read(int tasks, int tid, bool keep)
{
    if (file.isOpen()) {
        return readAll(file.get());
    }
    const std::string path = std::to_string(tid) + '/' + name;
    FileDescriptor opened(openat(tasks, path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!opened.isOpen()) {
        return std::nullopt;
    }
    std::optional<std::string> text = readAll(opened.get());
    if (keep && text) {
        file = std::move(opened);
    }
    return text;
}

std::optional<std::string> readFile(int directory, const std::string& path)
{
    const FileDescriptor opened(openat(directory, path.c_str(), O_RDONLY | O_CLOEXEC));
    return opened.isOpen() ? readAll(opened.get()) : std::nullopt;
}
