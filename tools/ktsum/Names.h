/// File names in checksum lists.
#pragma once

#include <optional>
#include <string>

/// Whether a name can't stand in a list as it is: it has a backslash or a line end in it.
bool needsEscape(const std::string& name);

/// The name with each backslash, newline and carriage return as `\\`, `\n` and `\r`.
std::string escaped(const std::string& name);

/// The name that was escaped; nothing if that is no escaped name.
std::optional<std::string> unescaped(const std::string& text);

/// The name as it stands in a line: escaped, with a backslash in front, where it must be.
std::string asPrinted(const std::string& name);
