#include "Program.h"

#include <algorithm>
#include <climits>
#include <ostream>

namespace {

/// What a step's first byte chooses from; what is there twice is done twice as often.
const Act acts[] = {
    Act::enqueue,    Act::enqueue,      Act::enqueue,      Act::enqueue,       Act::enqueue,
    Act::enqueue,    Act::enqueueEmpty, Act::enqueueBatch, Act::enqueueBatch,  Act::enqueueBatch,
    Act::release,    Act::release,      Act::release,      Act::release,       Act::release,
    Act::wake,       Act::adjust,       Act::adjust,       Act::adjust,        Act::increase,
    Act::look,       Act::take,         Act::take,         Act::reportEnd,     Act::retireNobody,
    Act::handleTask, Act::awaitEnded,   Act::useLocks,     Act::useConditions, Act::enqueueAgain,
    Act::stop,       Act::stopByForce,  Act::join,         Act::close,         Act::post,
    Act::post,       Act::post};

const char* nameOf(Act act)
{
    static const char* const names[] = {
        "enqueue",  "enqueueEmpty",  "enqueueBatch", "enqueueAgain", "release",    "wake",
        "adjust",   "increase",      "look",         "take",         "report",     "retireNobody",
        "stop",     "stopByForce",   "join",         "close",        "handleTask", "awaitEnded",
        "useLocks", "useConditions", "post"};
    return names[static_cast<int>(act)];
}

/// Mostly few; some pools that may shrink, and now and then a number that makes no sense.
int workersOf(int byte)
{
    if (byte >= 216) {
        return 17 + byte % 8;
    }
    return byte >= 208 ? 207 - byte : byte % 6;
}

int maxThreadsOf(int byte, int workers)
{
    if (byte >= 252) {
        return -1;
    }
    return std::max(byte >= 248 ? workers - 1 : std::max(workers, 0) + byte % 8, 0);
}

Setup makeSetup(const SetupBytes& bytes)
{
    const int periods[] = {0, 1, 2, 3, 7, -1};
    // None that a worker can't run on; refused ones give the platform's default.
    const int stacks[] = {0, INT_MIN, -1, 1, 262144, 300001, 655360, 1 << 20};
    Setup setup{};
    setup.workers = workersOf(bytes[0]);
    setup.maxThreads = maxThreadsOf(bytes[1], setup.workers);
    setup.period = periods[bytes[2] % 6];
    setup.stackSize = stacks[bytes[3] % 8];
    setup.clients = 1 + bytes[4] % 4;
    setup.initAt = bytes[5] < 200 ? 0 : bytes[5] % 8;
    setup.stops = bytes[6] % 2 == 1;
    return setup;
}

Step makeStep(const StepBytes& bytes)
{
    return {acts[bytes[0] % std::size(acts)], bytes[1], bytes[2], bytes[3]};
}

}  // namespace

Program makeProgram(const SetupBytes& setup, const std::vector<StepBytes>& steps)
{
    Program program{makeSetup(setup), {}};
    program.steps.reserve(steps.size());
    std::transform(steps.begin(), steps.end(), std::back_inserter(program.steps), makeStep);
    return program;
}

Program readProgram(const std::uint8_t* data, std::size_t size)
{
    const std::uint8_t* const end = data + size;
    SetupBytes setup{};
    const auto read = [&data, end](auto& bytes) {
        const auto count = std::min<std::ptrdiff_t>(end - data, std::ptrdiff_t(bytes.size()));
        std::copy_n(data, count, bytes.begin());
        data += count;
    };
    read(setup);
    std::vector<StepBytes> steps;
    while (data != end) {
        steps.emplace_back();
        read(steps.back());
    }
    return makeProgram(setup, steps);
}

int deltaOf(int amount)
{
    const int deltas[] = {1,  1,   2,   3,   5,       0,       -1,          -2,
                          -5, -17, -18, -19, INT_MAX, INT_MIN, INT_MIN + 1, -1000};
    return deltas[amount % 16];
}

std::ostream& operator<<(std::ostream& out, const Program& program)
{
    const Setup& setup = program.setup;
    out << setup.workers << " workers, at most " << setup.maxThreads << ", period " << setup.period
        << ", stack " << setup.stackSize << ", " << setup.clients << " clients, init at "
        << setup.initAt << (setup.stops ? ", stops" : "") << '\n';
    for (const Step& step : program.steps) {
        out << "  " << nameOf(step.act) << ' ' << step.who << ' ' << step.amount << ' '
            << step.extra << '\n';
    }
    return out;
}
