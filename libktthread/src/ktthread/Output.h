#pragma once

#include <string>
#include <string_view>

namespace KT::core {

/// The source that errors name, whichever file they are thrown in.
inline constexpr const char* sourceFile = "libktthread/src/ktthread";

/// Severities of records, as syslog(3) numbers them.
inline constexpr int critical = 2;
inline constexpr int warning = 4;
inline constexpr int debug = 7;

/// Emits one record. Throws std::bad_alloc.
void logRecord(const char* category, const char* function, const std::string& text,
               int severity = critical);

/// Writes a line to standard output in one piece, so that lines of several threads don't mix.
/// Allocates nothing, since a worker that retires must not fail halfway; a text is cut after 159
/// characters. Throws what std::cout is set to throw.
void consoleLine(std::string_view text);

}  // namespace KT::core
