#pragma once

#include <string>
#include <string_view>

namespace KT::core {

/// The source that errors name, whichever file they are thrown in.
inline constexpr const char* sourceFile = "libktthread/src/ktthread";

/// Emits one record. Throws std::bad_alloc.
void logRecord(const char* category, const char* function, const std::string& text);

/// Writes a line to standard output in one piece, so that lines of several threads don't mix.
/// Allocates nothing, since a worker that retires must not fail halfway; a text is cut after 159
/// characters. Throws what std::cout is set to throw.
void consoleLine(std::string_view text);

}  // namespace KT::core
