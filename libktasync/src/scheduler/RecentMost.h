/// The most of something in the last while.
#pragma once

#include <array>
#include <cstddef>

#include "../clock/Clock.h"

namespace KT {
namespace detail {

/// The largest of the numbers that were added in a window of time that ends now. It keeps the
/// largest one of each quarter, so the window is up to a quarter longer. For one thread at a time.
class RecentMost {
public:
    explicit RecentMost(Time::duration window);

    /// How long a number may stay longer than the window. At least a tick.
    Time::duration quarter() const { return part; }

    /// \param now  no less than with the call before
    void add(int number, Time::time_point now);

    /// 0 if none was added.
    int most(Time::time_point now);

private:
    void forgetUntil(Time::time_point now);

    const Time::duration part;
    std::array<int, 5> parts = {};  ///< four before the one that is going on
    std::size_t current = 0;
    Time::time_point end;  ///< of the current part
};

}  // namespace detail
}  // namespace KT
