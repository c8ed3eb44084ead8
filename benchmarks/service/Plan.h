/// Which requests are made.
#pragma once

#include <cstdint>
#include <random>
#include <string>

/// A request, and what must be answered.
struct Request {
    std::string target;
    std::string body;
    bool blocks;  ///< the server sleeps for it
};

/// What a load consists of.
struct Mix {
    double blockingShare = 0.3;  ///< of the requests: to /sleep
    int leastMs = 20;            ///< that they block for
    int mostMs = 200;
    std::string file;  ///< of half of the others: /sum/FILE; empty: all ask for /healthz
    std::string sum;   ///< what is to be answered
};

/// The requests of a load, one after the other; the same ones from the same seed. Each has a
/// number, which the server repeats at the end of the body: so an answer to another one is noticed.
/// It belongs to one thread.
class Plan {
public:
    Plan(Mix of, std::uint32_t seed) : mix(std::move(of)), random(seed) {}

    Request next();

private:
    bool chance(double share);

    const Mix mix;
    std::mt19937 random;
    std::uint64_t number = 0;
};
