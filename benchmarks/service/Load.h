/// Requests on many connections, and what became of them.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Exchange.h"
#include "Histogram.h"
#include "Plan.h"

/// When requests are made.
struct Pace {
    /// Connections at a time, at most.
    std::size_t clients = 64;

    /// Requests a second, evenly: a request is due at its moment, whatever became of those before,
    /// and its latency is counted from there, also if no client is free yet. 0: a client asks again
    /// as soon as it has its answer.
    double rate = 0;

    /// In which requests become due.
    std::chrono::duration<double> span{0};

    /// So many requests, all due at the beginning, instead of those of `rate` and `span`.
    std::size_t burst = 0;

    /// Without any answer for as long, what is open is given up.
    std::chrono::duration<double> patience{60};
};

/// What became of them. Times are microseconds.
struct Outcome {
    Histogram blocking;  ///< latencies of the requests that the server slept for
    Histogram others;
    std::map<std::string, int> errors;
    std::vector<std::int64_t> answers;  ///< since the beginning, in order
    std::int64_t elapsed = 0;           ///< until the last one
};

/// Makes the requests of a plan. One thread, the caller's, does it all, so that the client takes
/// as little as it can of the processors that the server needs. To be used once.
class Load {
public:
    /// \param toPort  on 127.0.0.1
    /// \param of      kept by reference
    Load(int toPort, Plan& of, const Pace& at);

    /// Blocks until all are over. Throws std::system_error.
    Outcome run();

private:
    bool isAllBegun(Clock::time_point now) const;
    Clock::time_point nextDue(Clock::time_point now) const;
    void beginDue();
    void begin(Clock::time_point due);
    bool await();
    void proceed(Exchange* one);
    void end(Exchange* one);
    void giveUp();

    const int port;
    Plan& plan;
    const Pace pace;
    const std::size_t clients;
    Descriptor events;
    Clock::time_point start;
    Clock::time_point lastAnswer;
    std::size_t begun = 0;
    std::map<Exchange*, std::unique_ptr<Exchange>> open;
    Outcome outcome;
};
