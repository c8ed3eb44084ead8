/// The names of threads that run work.
#pragma once

#include <string_view>

namespace KT {
namespace detail {

/// Names the calling thread after the task that it runs, as the core does. Throws nothing.
void showTaskName(std::string_view task);

}  // namespace detail
}  // namespace KT
