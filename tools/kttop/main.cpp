/// kttop: the workers of a process that uses libktthread, live.
#include <clocale>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

#include <langinfo.h>
#include <unistd.h>

#include "ExitStatus.h"
#include "Once.h"
#include "Options.h"
#include "ProcessFinder.h"
#include "Source.h"
#include "Watch.h"

namespace {

const double usualInterval = 1;
const double intervalOfOnce = 0.25;

void complain(const char* message)
{
    std::fprintf(stderr, "kttop: %s\n", message);
}

std::unique_ptr<Source> openSource(const Options& options)
{
    if (options.replay) {
        return std::make_unique<ReplaySource>(*options.replay, options.interval);
    }
    const int pid = findProcess(options.procfs, options.target);
    return std::make_unique<LiveSource>(
        ProcessReader(options.procfs, pid, filesToKeep()),
        options.interval.value_or(options.once ? intervalOfOnce : usualInterval));
}

int watch(const Options& options, bool onTerminal, bool utf8)
{
    const std::unique_ptr<Source> source = openSource(options);
    std::optional<RecordingWriter> recorder;
    if (options.record) {
        recorder.emplace(*options.record, source->process(),
                         options.interval.value_or(usualInterval));
    }
    Watch watching(*source, recorder ? &*recorder : nullptr, onTerminal, utf8);
    const int exitStatus = watching.go();
    if (!watching.lastWord().empty()) {
        complain(watching.lastWord().c_str());
    }
    return exitStatus;
}

int run(const Options& options, bool utf8)
{
    if (options.once) {
        return runOnce(*openSource(options), options, utf8);
    }
    const bool onTerminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
    if (!onTerminal && !options.record) {
        complain(
            "this is no terminal; --once prints one sample, --record FILE writes them to a file");
        return exitUsage;
    }
    return watch(options, onTerminal, utf8);
}

}  // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, "");
    const bool utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    int exitStatus = exitDone;
    const std::optional<Options> options = parseOptions(argc, argv, exitStatus);
    if (!options) {
        return exitStatus;
    }
    try {
        return run(*options, utf8);
    } catch (const std::exception& error) {
        complain(error.what());
        return exitFailure;
    }
}
