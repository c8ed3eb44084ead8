#include <ktasync/detail/ShortName.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace KT {
namespace detail {

ShortName::ShortName(std::string_view name)
{
    name.copy(text, sizeof text - 1);
}

ShortName::ShortName(const char* function, const char* file, int line)
    : ShortName(std::string_view(function))
{
    if (std::strcmp(function, "operator()") != 0) {
        return;
    }
    const char* const slash = std::strrchr(file, '/');
    const std::string_view base = slash != nullptr ? slash + 1 : file;
    const int stem = static_cast<int>(std::min(base.size(), base.find('.')));
    std::snprintf(text, sizeof text, "%.*s:%d", std::min(stem, 9), base.data(), line);
}

}  // namespace detail
}  // namespace KT
