#include "TraceFile.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "../base/Cancellation.h"

namespace KT {
namespace detail {

namespace {

const std::size_t bufferSize = 64 * 1024;

const std::string_view arrayEnd = "\n]\n";

int openToWrite(const std::string& path)
{
    const int opened = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (opened < 0) {
        throw std::system_error(errno, std::generic_category());
    }
    return opened;
}

}  // namespace

TraceFile::TraceFile(const std::string& path) : descriptor(openToWrite(path))
{
    try {
        buffer.reserve(bufferSize);
        buffer = "[";
        flush();
    } catch (...) {
        close(descriptor);
        throw;
    }
}

TraceFile::~TraceFile()
{
    const NoCancellation off;
    close(descriptor);
}

void TraceFile::add(std::string_view object)
{
    const std::string_view separator = isEmpty ? "\n" : ",\n";
    if (buffer.size() + separator.size() + object.size() + arrayEnd.size() > bufferSize) {
        flush();
    }
    buffer.reserve(buffer.size() + separator.size() + object.size() + arrayEnd.size());
    buffer += separator;
    buffer += object;
    isEmpty = false;
}

void TraceFile::flush()
{
    if (buffer.empty()) {
        return;
    }
    const std::size_t size = buffer.size();
    buffer += arrayEnd;
    try {
        writeAt(end, buffer);
    } catch (const std::system_error&) {
        buffer.resize(size);
        if (ftruncate(descriptor, end) == 0 && end > 0) {
            writeAt(end, arrayEnd);
        }
        throw;
    }
    end += static_cast<off_t>(size);
    buffer.clear();
}

void TraceFile::writeAt(off_t offset, std::string_view text) const
{
    while (!text.empty()) {
        const ssize_t written = pwrite(descriptor, text.data(), text.size(), offset);
        if (written < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category());
        }
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
            offset += written;
        }
    }
}

std::string quoted(std::string_view text)
{
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace detail
}  // namespace KT
