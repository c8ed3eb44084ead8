#pragma once

#include <cstddef>

namespace KT::core {

/// Bytes that move together between processors. Data that different threads write often are kept in
/// different cache lines.
constexpr std::size_t cacheLineSize = 64;

}  // namespace KT::core
