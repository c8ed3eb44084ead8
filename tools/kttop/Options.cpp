#include "Options.h"

#include <cstdio>
#include <iostream>

#include <CLI/CLI.hpp>

#include <ktthread/version.h>

#include "ExitStatus.h"

namespace {

const double shortestInterval = 0.05;
const double longestInterval = 3600;

const char* const description =
    "Shows the workers of a process that uses libktthread, live, from the names of its threads.\n"
    "The kernel keeps 15 bytes of a thread's name, so 7 of a task's: \"image-r\" may be "
    "image-resize.\n";

const char* const footer =
    "\nPress h for the keys. It ends with 0, with 1 if it could not be done, with 2 for a bad "
    "usage,\n"
    "and with 3 if the process ended while it was watched.";

std::string checkInterval(const std::string& text)
{
    double seconds = 0;
    if (!CLI::detail::lexical_cast(text, seconds) ||
        !(seconds >= shortestInterval && seconds <= longestInterval)) {
        return "'" + text + "' is not a number of seconds from 0.05 to 3600";
    }
    return std::string();
}

void addOptions(CLI::App& app, Options& options)
{
    CLI::Option* const target =
        app.add_option("PROCESS", options.target,
                       "The process: its pid, or its name if it is the only one")
            ->type_name("PID|NAME");
    app.add_option("-i,--interval", options.interval,
                   "Seconds from sample to sample, e.g. 0.5 (default: 1; with --once 0.25; with "
                   "--replay as recorded)")
        ->type_name("SECONDS")
        ->check(CLI::Validator(checkInterval, ""));
    CLI::Option* const once = app.add_flag(
        "--once", options.once,
        "Print one sample and end: shares and rates are those between two readings, an interval "
        "apart; with --replay the last sample");
    app.add_flag("--json", options.json, "With --once: as JSON")->needs(once);
    CLI::Option* const record =
        app.add_option(
               "--record", options.record,
               "Write the samples to a file, too; where standard output is no terminal, only "
               "there, until the process ends or a signal comes")
            ->type_name("FILE")
            ->excludes(once);
    app.add_option("--replay", options.replay, "Show a file that --record wrote")
        ->type_name("FILE")
        ->excludes(record)
        ->excludes(target);
    app.add_option("--proc", options.procfs, "Where the kernel's /proc is mounted")
        ->type_name("DIRECTORY")
        ->capture_default_str();
}

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, int& exitStatus)
{
    Options options;
    CLI::App app(description, "kttop");
    app.footer(footer);
    app.set_version_flag("--version", "kttop " KT_VERSION, "Print the version and end");
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return "kttop: " + CLI::FailureMessage::simple(failed, error);
    });
    addOptions(app, options);
    try {
        app.parse(argc, argv);
        if (options.target.empty() && !options.replay) {
            throw CLI::ValidationError("PROCESS", "which one? Give a pid or a name");
        }
        return options;
    } catch (const CLI::ParseError& error) {
        exitStatus = app.exit(error) == 0 ? exitDone : exitUsage;
        if (!std::cout.flush()) {
            std::perror("kttop: write error");
            exitStatus = exitFailure;
        }
        return std::nullopt;
    }
}
