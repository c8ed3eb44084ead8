#include "Interrupt.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t noted = 0;

}  // namespace

void watchForInterrupts()
{
    struct sigaction action {};
    action.sa_handler = [](int signal) { noted = signal; };
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_DFL);
}

int interrupted()
{
    return noted;
}
