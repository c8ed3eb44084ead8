/// A task's name, as much of it as a kernel thread name could ever show.
#pragma once

#include <cstring>
#include <string_view>

#include <ktasync/export.h>

namespace KT {
namespace detail {

/// Up to 15 characters: more would cost each task an allocation, and nobody would see them.
class KTASYNC_EXPORT ShortName {
public:
    /// The start of `name`.
    explicit ShortName(std::string_view name);

    /// Of a call: `function`, or "file:line" where that is a lambda.
    ShortName(const char* function, const char* file, int line);

    std::string_view view() const { return text; }

    friend bool operator==(const ShortName& a, const ShortName& b)
    {
        return std::memcmp(a.text, b.text, sizeof a.text) == 0;
    }

private:
    char text[16] = {};
};

}  // namespace detail
}  // namespace KT
