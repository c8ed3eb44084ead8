/// Waiting for the time, a key or a signal, whichever comes first.
#pragma once

#include <chrono>
#include <csignal>

enum class Event {
    time,    ///< it has come
    input,   ///< there is some, or the terminal's size has changed
    ending,  ///< a signal asks the program to end, or the terminal is gone
};

/// Keeps signals away but for its waits, so that none comes between a look and the wait for what it
/// didn't see. There is one at a time.
class Waiting {
public:
    Waiting();
    ~Waiting();
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    Event until(std::chrono::steady_clock::time_point time, bool withInput);

private:
    sigset_t outside;  ///< the signals that were blocked before
};
