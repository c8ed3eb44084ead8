#pragma once

#include <new>

namespace KT::core {

/// Runs an action that its caller can do without if memory runs out. Passes on any other exception.
template <typename Action>
void ignoreBadAlloc(const Action& action)
{
    try {
        action();
    } catch (const std::bad_alloc&) {
    }
}

}  // namespace KT::core
