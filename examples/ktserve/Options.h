/// The command line and the environment.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

/// What a client may take.
struct Limits {
    std::size_t headBytes = 8192;  ///< of the request line and the headers
    int clientTimeoutMs = 5000;    ///< to send a request, and again to take the answer
    int retryAfterS = 1;           ///< when it may try again after a 503
};

struct Options {
    std::string root;
    std::string host = "127.0.0.1";
    int port = 8080;               ///< 0: one that is free
    std::optional<int> adminPort;  ///< not set: none
    Limits limits;
    int maxThreads = 64;  ///< connections that are served at a time
    int maxQueued = 256;  ///< connections that wait
    int drainMs = 0;      ///< between the signal and the end of accepting
    int graceMs = 30000;  ///< for what was accepted
    bool quiet = false;   ///< no record for each request
};

/// Reads them. Nothing: the process is to end with `exitStatus`: 0 after --help, 2 for a value that
/// is wrong; what there is to say has been said then. For main, before there are other threads.
std::optional<Options> parseOptions(int argc, const char* const* argv, int& exitStatus);
