/// A file of trace events.
#pragma once

#include <string>
#include <string_view>

#include <sys/types.h>

namespace KT {
namespace detail {

/// A JSON array of objects, whole after each write. One thread at a time. Its operations are
/// cancellation points.
class TraceFile {
public:
    /// Makes the file, or empties it. Throws std::system_error.
    explicit TraceFile(const std::string& path);
    ~TraceFile();
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    /// Appends an object, in memory for now; full, that is written first. Throws std::system_error,
    /// std::bad_alloc; then the object is not added.
    void add(std::string_view object);

    /// Throws std::system_error; the file then is as it was, and so it stays.
    void flush();

private:
    void writeAt(off_t offset, std::string_view text) const;

    const int descriptor;
    off_t end = 0;  ///< of the last object in the file
    bool isEmpty = true;
    std::string buffer;
};

/// `text` as JSON, in quotes. What is no UTF-8 in it becomes U+FFFD.
std::string quoted(std::string_view text);

}  // namespace detail
}  // namespace KT
