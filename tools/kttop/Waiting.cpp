#include "Waiting.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <poll.h>
#include <unistd.h>

namespace {

const std::array<int, 3> endingSignals = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t asked = 0;

void askToEnd(int)
{
    asked = 1;
}

timespec timeLeft(std::chrono::steady_clock::time_point time)
{
    const auto left = std::max(time - std::chrono::steady_clock::now(),
                               std::chrono::steady_clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const std::chrono::nanoseconds rest = left - seconds;
    return {static_cast<std::time_t>(seconds.count()), static_cast<long>(rest.count())};
}

}  // namespace

Waiting::Waiting() : outside()
{
    sigset_t mine;
    sigemptyset(&mine);
    for (const int signal : endingSignals) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN) {
            continue;  // as nohup wants it
        }
        action.sa_handler = askToEnd;
        sigaction(signal, &action, nullptr);
        sigaddset(&mine, signal);
    }
    sigaddset(&mine, SIGWINCH);
    sigprocmask(SIG_BLOCK, &mine, &outside);
}

Waiting::~Waiting()
{
    sigprocmask(SIG_SETMASK, &outside, nullptr);
}

Event Waiting::until(std::chrono::steady_clock::time_point time, bool withInput)
{
    const timespec left = timeLeft(time);
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    const int ready = ppoll(&input, withInput ? 1 : 0, &left, &outside);
    if (asked != 0 || (ready > 0 && (input.revents & ~POLLIN) != 0)) {
        return Event::ending;
    }
    if (ready > 0 || (ready < 0 && errno == EINTR)) {
        return Event::input;
    }
    return Event::time;
}
