/// What a random program found wrong.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

class Finding : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws a Finding unless it holds.
inline void require(bool holds, const std::string& what)
{
    if (!holds) {
        throw Finding(what);
    }
}

/// Waits until `condition` holds, which it looks at soon and often, for programs are many; false
/// after twenty seconds.
bool soon(const std::function<bool()>& condition);

/// No records on standard error of tasks that fail on purpose. Once for all.
void silenceLog();
