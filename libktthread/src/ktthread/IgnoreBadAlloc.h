#pragma once

#include <new>

namespace KT::core {

/// Does what its caller can do without when memory runs out. Any other exception is passed on.
template <typename Action>
void ignoreBadAlloc(const Action& action)
{
    try {
        action();
    } catch (const std::bad_alloc&) {
    }
}

}  // namespace KT::core
