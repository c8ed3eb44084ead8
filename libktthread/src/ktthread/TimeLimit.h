#pragma once

#include <algorithm>
#include <chrono>

namespace KT::core {

/// A time limit on the monotonic clock; negative: none.
class TimeLimit {
public:
    explicit TimeLimit(int milliseconds)
        : unlimited(milliseconds < 0),
          end(std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds))
    {
    }

    /// Milliseconds left, rounded up, and no more than `most`.
    int left(int most) const
    {
        if (unlimited) {
            return most;
        }
        const auto rest =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(rest.count(), 0, most));
    }

private:
    bool unlimited;
    std::chrono::steady_clock::time_point end;
};

}  // namespace KT::core
