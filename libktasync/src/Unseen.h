/// What is said of exceptions that nobody can look at any more.
#pragma once

#include <exception>
#include <string_view>

namespace KT {
namespace detail {

/// Logs that `task` threw `error`. Throws nothing.
void logUnseen(std::string_view task, const std::exception_ptr& error);

/// A warning of this library.
void logWarning(const char* function, std::string_view text);

}  // namespace detail
}  // namespace KT
