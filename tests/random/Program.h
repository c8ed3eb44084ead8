/// Random programs: what clients do to a pool, read from any bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <vector>

/// The operations of the core, each with one or more of the numbers of its step; and libktasync's
/// post, where there are many clients.
enum class Act {
    enqueue,
    enqueueEmpty,
    enqueueBatch,
    enqueueAgain,
    release,
    wake,
    adjust,
    increase,
    look,
    take,
    reportEnd,
    retireNobody,
    stop,
    stopByForce,
    join,
    close,
    handleTask,
    awaitEnded,
    useLocks,
    useConditions,
    post,
};

struct Step {
    Act act;
    int who;     ///< 0 to 255: the client, where there are many
    int amount;  ///< 0 to 255
    int extra;   ///< 0 to 255
};

struct Setup {
    int workers;
    int maxThreads;
    int period;
    int stackSize;
    int clients;         ///< 1 to 4
    std::size_t initAt;  ///< the step before which a single client calls init
    bool stops;          ///< many clients shut down and close, too, while the others go on
};

struct Program {
    Setup setup;
    std::vector<Step> steps;
};

using SetupBytes = std::array<std::uint8_t, 7>;
using StepBytes = std::array<std::uint8_t, 4>;

/// Every setup and every list of steps is a program.
Program makeProgram(const SetupBytes& setup, const std::vector<StepBytes>& steps);

/// The bytes of a setup, then those of the steps; what is missing is zero.
Program readProgram(const std::uint8_t* data, std::size_t size);

/// One of the numbers that adjustThread is tried with: small ones, and those at the edges.
int deltaOf(int amount);

/// For people, a line a step.
std::ostream& operator<<(std::ostream& out, const Program& program);
