/// What must hold for ktsum's lists of checksums, whatever stands in them.
#pragma once

#include <string>
#include <vector>

#include "CheckList.h"

/// Reads `text` as a list, and throws a Finding unless each entry is a line that could be written,
/// or the number of an improper line; and what was read, written, reads the same.
void checkList(const std::string& text);

/// Throws a Finding unless a list with these lines is read as these lines.
void checkReadsBack(const std::vector<CheckLine>& lines);
