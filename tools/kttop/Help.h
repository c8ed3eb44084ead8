/// The help that a key shows.
#pragma once

#include <string>
#include <vector>

/// At most 80 columns, and 23 lines.
const std::vector<std::string>& helpLines();
