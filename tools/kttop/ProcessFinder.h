/// Which process is meant on the command line.
#pragma once

#include <string>

/// The pid that `target` is, or of the only process with that name. A process's name is its main
/// thread's, or that of the file that it was started as. Throws ProcessError: none, or several.
int findProcess(const std::string& procfs, const std::string& target);
