/// ktserve: checksums of files over HTTP; a service to copy from.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>

#include <pthread.h>
#include <unistd.h>

#include "Log.h"
#include "Options.h"
#include "Service.h"

namespace {

const int exitFailed = 1;  ///< it couldn't start, or not all that was accepted could be finished

sigset_t stopSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    return signals;
}

/// The next signal ends the process at once. With a handler, since a process that is the first of a
/// container would ignore it otherwise.
void letSignalsForce(const sigset_t& signals)
{
    struct sigaction action = {};
    action.sa_handler = [](int) { _exit(exitFailed); };
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void sayWhere(const Options& options, const Service& service)
{
    std::printf("http://%s:%d\n", options.host.c_str(), service.port());
    if (service.adminPort()) {
        std::printf("http://%s:%d\n", options.host.c_str(), *service.adminPort());
    }
    std::fflush(stdout);
}

/// Until the first signal, and what follows from that.
int run(const Options& options, const sigset_t& signals)
{
    Service service(options);
    sayWhere(options, service);

    int signal = 0;
    sigwait(&signals, &signal);
    letSignalsForce(signals);
    logInfo("told to end");
    service.drain();
    std::this_thread::sleep_for(std::chrono::milliseconds(options.drainMs));
    if (!service.finish()) {
        logWarning("ended with requests unfinished");
        std::_Exit(exitFailed);  // threads may still be busy with them
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv)
{
    int exitStatus = EXIT_SUCCESS;
    const std::optional<Options> options = parseOptions(argc, argv, exitStatus);
    if (!options) {
        return exitStatus;
    }
    // Before there are other threads, which inherit it.
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A file that would get too large is an error in writing, as a full disk is.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return run(*options, signals);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ktserve: %s\n", error.what());
        return exitFailed;
    }
}
