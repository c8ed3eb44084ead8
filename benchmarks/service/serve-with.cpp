// serve-with POOL ROOT: serves the files below ROOT with connections on a pool (libktasync,
// cpp-httplib or Boost.Asio) until SIGTERM. Prints its port.
#include <csignal>
#include <cstdio>
#include <exception>

#include <pthread.h>
#include <sys/resource.h>

#include "Server.h"

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "serve-with: give a pool and a directory\n");
        return 2;
    }
    // Before there are other threads, which inherit it.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    try {
        const Server server(argv[1], argv[2]);
        std::printf("%d\n", server.port());
        std::fflush(stdout);
        int signal = 0;
        sigwait(&signals, &signal);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "serve-with: %s\n", error.what());
        return 1;
    }
}
