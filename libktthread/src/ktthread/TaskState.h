#pragma once

#include <cstdint>

namespace KT::core {

// The values of a task's state.
constexpr std::int32_t stateWaiting = 0;
constexpr std::int32_t stateRunning = 1;
constexpr std::int32_t stateFinished = 2;

}  // namespace KT::core
