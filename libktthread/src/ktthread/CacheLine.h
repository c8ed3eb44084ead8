#pragma once

#include <cstddef>

namespace KT::core {

/// Bytes that travel together between processors. What different threads write all the time is kept
/// in different ones.
constexpr std::size_t cacheLineSize = 64;

}  // namespace KT::core
