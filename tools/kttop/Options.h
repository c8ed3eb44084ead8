/// The command line.
#pragma once

#include <optional>
#include <string>

struct Options {
    std::string target;              ///< a pid or a name; empty with `replay`
    std::optional<double> interval;  ///< seconds
    bool once = false;
    bool json = false;
    std::optional<std::string> record;
    std::optional<std::string> replay;
    std::string procfs = "/proc";
};

/// Reads the command line. Nothing: the program is to end with `exitStatus` (0 after --help, 1 if
/// that can't be written, 2 for a bad usage), what there is to say having been said.
std::optional<Options> parseOptions(int argc, char** argv, int& exitStatus);
