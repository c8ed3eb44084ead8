#include "Load.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <system_error>

#include <sys/epoll.h>

namespace {

std::int64_t microseconds(Clock::duration time)
{
    return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

Clock::duration ticks(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

Load::Load(int toPort, Plan& of, const Pace& at)
    : port(toPort),
      plan(of),
      pace(at),
      clients(at.burst > 0 ? at.burst : at.clients),
      events(epoll_create1(EPOLL_CLOEXEC))
{
    if (events.get() < 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_create1");
    }
}

bool Load::isAllBegun(Clock::time_point now) const
{
    if (pace.burst > 0) {
        return begun == pace.burst;
    }
    return (pace.rate > 0 ? nextDue(now) : now) >= start + ticks(pace.span.count());
}

/// When the next request is due.
Clock::time_point Load::nextDue(Clock::time_point now) const
{
    if (pace.burst > 0) {
        return start;
    }
    return pace.rate > 0 ? start + ticks(static_cast<double>(begun) / pace.rate) : now;
}

Outcome Load::run()
{
    start = Clock::now();
    lastAnswer = start;
    do {
        beginDue();
    } while (await());
    outcome.elapsed = microseconds(lastAnswer - start);
    return std::move(outcome);
}

void Load::beginDue()
{
    while (open.size() < clients) {
        const Clock::time_point now = Clock::now();
        const Clock::time_point due = nextDue(now);
        if (due > now || isAllBegun(now)) {
            return;
        }
        begin(due);
    }
}

void Load::begin(Clock::time_point due)
{
    ++begun;
    auto made = std::make_unique<Exchange>(port, plan.next(), due);
    Exchange* const one = made.get();
    open.emplace(one, std::move(made));
    // Told of each change once.
    epoll_event event = {EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET, {}};
    event.data.ptr = one;
    if (epoll_ctl(events.get(), EPOLL_CTL_ADD, one->socket(), &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
    proceed(one);
}

/// For an answer, or until the next request is due. False when all are over.
bool Load::await()
{
    const Clock::time_point now = Clock::now();
    const bool isLast = isAllBegun(now);
    if (open.empty() && isLast) {
        return false;
    }
    if (!open.empty() && now - lastAnswer > pace.patience) {
        giveUp();
        return false;
    }
    Clock::duration wait = std::chrono::seconds(1);
    if (!isLast && open.size() < clients) {
        wait = std::clamp(nextDue(now) - now, Clock::duration::zero(), wait);
    }
    const timespec limit = {wait / std::chrono::seconds(1),
                            std::chrono::nanoseconds(wait % std::chrono::seconds(1)).count()};
    std::array<epoll_event, 64> ready = {};
    const int count = epoll_pwait2(events.get(), ready.data(), ready.size(), &limit, nullptr);
    for (int i = 0; i < count; ++i) {
        proceed(static_cast<Exchange*>(ready[static_cast<std::size_t>(i)].data.ptr));
    }
    return true;
}

void Load::proceed(Exchange* one)
{
    if (!one->proceed()) {
        end(one);
    }
}

void Load::end(Exchange* one)
{
    const std::string_view fault = one->fault();
    const Clock::time_point now = Clock::now();
    if (fault.empty()) {
        (one->blocks() ? outcome.blocking : outcome.others).record(microseconds(one->latency()));
        outcome.answers.push_back(microseconds(now - start));
    } else {
        ++outcome.errors[std::string(fault)];
    }
    lastAnswer = now;
    open.erase(one);  // closes the socket, which leaves the epoll set by that
}

void Load::giveUp()
{
    outcome.errors["no answer in time"] += static_cast<int>(open.size());
    open.clear();
}
