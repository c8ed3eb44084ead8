/// The command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct Options {
    std::string algorithm = "sha256";
    std::vector<std::string> paths;
    std::optional<std::string> checkFile;
    bool quiet = false;
    bool status = false;
    bool strict = false;
    bool warn = false;
    bool ignoreMissing = false;
    int threads = 0;     ///< workers to start with
    int maxThreads = 0;  ///< workers to grow to
    std::uint64_t shard = 1;
    std::uint64_t shards = 1;
    bool report = false;
    std::optional<std::string> trace;  ///< a file for the timeline
};

/// Reads the command line. Nothing: the program is to end with `exitStatus` (0 after --help, 1 if
/// that can't be written, 2 for a bad usage), what there is to say having been said.
std::optional<Options> parseOptions(int argc, char** argv, int& exitStatus);
