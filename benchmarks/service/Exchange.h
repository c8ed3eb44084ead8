/// One request on a connection of its own.
#pragma once

#include <chrono>
#include <string>

#include "../../examples/ktserve/Descriptor.h"
#include "Answer.h"
#include "Plan.h"

using Clock = std::chrono::steady_clock;

/// From the connection to the server until that closes it. Doesn't block; belongs to one thread.
class Exchange {
public:
    /// Begins to connect to 127.0.0.1, and sends the request at once if it can. Throws
    /// std::system_error if there is no socket to be had.
    ///
    /// \param dueAt  when the request should have been sent
    Exchange(int port, const Request& request, Clock::time_point dueAt);

    int socket() const { return descriptor.get(); }

    /// Goes on as far as it can: to be called when the socket can be read from or written to. False
    /// when it is over.
    bool proceed();

    /// What is wrong with it; empty if nothing is. When it is over.
    std::string_view fault() const { return failed.empty() ? answer.fault(true) : failed; }

    /// From when it was due until the answer was whole.
    Clock::duration latency() const { return answered - due; }

    bool blocks() const { return isBlocking; }

private:
    bool sendRest();
    bool receive();

    Descriptor descriptor;
    const Clock::time_point due;
    const bool isBlocking;
    std::string unsent;
    Answer answer;
    bool isWhole = false;
    Clock::time_point answered;
    std::string_view failed;
};
