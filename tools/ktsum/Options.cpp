#include "Options.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include <sched.h>

#include <CLI/CLI.hpp>

#include <ktthread/version.h>

#include "ExitStatus.h"

namespace {

/// Processors that this process may use.
int processors()
{
    cpu_set_t set;
    return sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : 1;
}

/// "K/N" with 1 <= K <= N.
std::string parseShard(const std::string& text, Options& options)
{
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos ||
        !CLI::detail::lexical_cast(text.substr(0, slash), options.shard) ||
        !CLI::detail::lexical_cast(text.substr(slash + 1), options.shards) || options.shard < 1 ||
        options.shard > options.shards) {
        return "'" + text + "' is not K/N with K from 1 to N";
    }
    return std::string();
}

void addOptions(CLI::App& app, Options& options)
{
    app.add_option("PATH", options.paths,
                   "Files, and directories for all files below them; - or none: standard input");
    app.add_option("-a,--algorithm", options.algorithm,
                   "Any digest that OpenSSL knows, e.g. sha256, sha512, sha1, md5, blake2b512")
        ->capture_default_str();
    CLI::Option* const check =
        app.add_option("-c,--check", options.checkFile, "Verify the checksums listed in a file")
            ->type_name("FILE");
    app.add_flag("--quiet", options.quiet, "With --check: print no OK lines")->needs(check);
    app.add_flag("--status", options.status, "With --check: print nothing")->needs(check);
    app.add_flag("--strict", options.strict, "With --check: fail on improper lines")->needs(check);
    app.add_flag("-w,--warn", options.warn, "With --check: name improper lines")->needs(check);
    app.add_flag("--ignore-missing", options.ignoreMissing,
                 "With --check: pass over files that don't exist")
        ->needs(check);
    app.add_option("--threads", options.threads, "Workers to start with (default: one a processor)")
        ->check(CLI::Range(1, 100000));
    app.add_option("--max-threads", options.maxThreads,
                   "Workers to grow to (default: --threads; without it, two a processor)")
        ->check(CLI::Range(1, 100000));
    app.add_option_function<std::string>(
           "--shard",
           [&options](const std::string& text) {
               const std::string error = parseShard(text, options);
               if (!error.empty()) {
                   throw CLI::ValidationError("--shard", error);
               }
           },
           "Take the K-th of N parts of the file list")
        ->type_name("K/N");
    app.add_flag("--report", options.report, "Say on standard error what the pool did");
    app.add_option("--trace", options.trace,
                   "Write a timeline of the tasks, for ui.perfetto.dev or chrome://tracing")
        ->type_name("FILE");
}

void complete(Options& options)
{
    if (options.maxThreads == 0) {
        options.maxThreads = options.threads != 0 ? options.threads : 2 * processors();
    }
    if (options.threads == 0) {
        options.threads = std::min(processors(), options.maxThreads);
    }
    if (options.threads > options.maxThreads) {
        throw CLI::ValidationError("--threads", "more than --max-threads");
    }
    if (options.checkFile && !options.paths.empty()) {
        throw CLI::ValidationError("--check", "the files are those of the list; give no PATH");
    }
    if (options.checkFile == "-" && options.shards > 1) {
        throw CLI::ValidationError("--shard", "a list on standard input can't be counted first");
    }
    if (!options.checkFile && options.paths.empty()) {
        options.paths.push_back("-");
    }
}

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, int& exitStatus)
{
    Options options;
    CLI::App app(
        "Print or verify checksums of files, and of all files below directories, in "
        "parallel.",
        "ktsum");
    app.set_version_flag("--version", "ktsum " KT_VERSION, "Print the version and end");
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return "ktsum: " + CLI::FailureMessage::simple(failed, error);
    });
    addOptions(app, options);
    try {
        app.parse(argc, argv);
        complete(options);
        return options;
    } catch (const CLI::ParseError& error) {
        exitStatus = app.exit(error) == 0 ? exitDone : exitUsage;
        if (!std::cout.flush()) {
            std::perror("ktsum: write error");
            exitStatus = exitFailure;
        }
        return std::nullopt;
    }
}
