#include "RecentMost.h"

#include <algorithm>

namespace KT {
namespace detail {

RecentMost::RecentMost(Time::duration window) : part(std::max(window / 4, Time::duration(1))) {}

void RecentMost::forgetUntil(Time::time_point now)
{
    if (now < end) {
        return;
    }
    const Time::duration missed = now - end;
    end += (missed / part + 1) * part;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (missed >= static_cast<int>(i) * part) {
            current = (current + 1) % parts.size();
            parts[current] = 0;
        }
    }
}

void RecentMost::add(int number, Time::time_point now)
{
    forgetUntil(now);
    parts[current] = std::max(parts[current], number);
}

int RecentMost::most(Time::time_point now)
{
    forgetUntil(now);
    return *std::max_element(parts.begin(), parts.end());
}

}  // namespace detail
}  // namespace KT
