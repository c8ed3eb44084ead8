#include "Options.h"

#include <CLI/CLI.hpp>

namespace {

void addPlaces(CLI::App& app, Options& options)
{
    app.add_option("ROOT", options.root, "Directory whose files /sum serves")
        ->envname("KTSERVE_ROOT")
        ->required()
        ->check(CLI::ExistingDirectory);
    app.add_option("--host", options.host, "Address to listen on")
        ->envname("KTSERVE_HOST")
        ->check(CLI::ValidIPV4)
        ->capture_default_str();
    app.add_option("--port", options.port, "Port to listen on; 0: any that is free")
        ->envname("KTSERVE_PORT")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--admin-port", options.adminPort,
                   "Port for health, metrics and status alone, which answers also while the other "
                   "one is full; 0: any that is free")
        ->envname("KTSERVE_ADMIN_PORT")
        ->check(CLI::Range(0, 65535));
}

void addLimits(CLI::App& app, Options& options)
{
    const auto add = [&app](const char* name, auto& value, int least, int most, const char* env,
                            const char* text) {
        app.add_option(name, value, text)
            ->envname(env)
            ->check(CLI::Range(least, most))
            ->capture_default_str();
    };
    add("--max-threads", options.maxThreads, 1, 4096, "KTSERVE_MAX_THREADS",
        "Connections that are served at a time");
    add("--max-queued", options.maxQueued, 1, 65536, "KTSERVE_MAX_QUEUED",
        "Connections that wait; further ones are refused with 503");
    add("--retry-after-s", options.limits.retryAfterS, 1, 3600, "KTSERVE_RETRY_AFTER_S",
        "Seconds after which a client that got 503 may try again");
    add("--max-head-bytes", options.limits.headBytes, 256, 65536, "KTSERVE_MAX_HEAD_BYTES",
        "Bytes of a request's first line and headers");
    add("--client-timeout-ms", options.limits.clientTimeoutMs, 1, 600000,
        "KTSERVE_CLIENT_TIMEOUT_MS",
        "Milliseconds that a client may take to send a request, and again to take the answer");
    add("--drain-ms", options.drainMs, 0, 600000, "KTSERVE_DRAIN_MS",
        "Milliseconds between a signal, from which on /readyz says 503, and the end of accepting");
    add("--grace-ms", options.graceMs, 0, 600000, "KTSERVE_GRACE_MS",
        "Milliseconds that accepted requests may take from then on");
}

}  // namespace

std::optional<Options> parseOptions(int argc, const char* const* argv, int& exitStatus)
{
    Options options;
    CLI::App app("An HTTP service on a pool of libktthread: checksums of files.", "ktserve");
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return "ktserve: " + CLI::FailureMessage::simple(failed, error);
    });
    addPlaces(app, options);
    addLimits(app, options);
    app.add_flag("--quiet", options.quiet, "Log no record for each request")
        ->envname("KTSERVE_QUIET");
    try {
        app.parse(argc, argv);
        return options;
    } catch (const CLI::ParseError& error) {
        exitStatus = app.exit(error) == 0 ? 0 : 2;
        return std::nullopt;
    }
}
