/// What this library says in the log.
#pragma once

#include <exception>
#include <functional>
#include <string>
#include <string_view>

namespace KT {
namespace detail {

/// Logs that `task` threw `error`. Throws nothing.
void logUnseen(std::string_view task, const std::exception_ptr& error);

/// A warning of this library, whose text `makeText` makes. Throws nothing: without memory for it
/// there is no record.
void logWarning(const char* function, const std::function<std::string()>& makeText);

}  // namespace detail
}  // namespace KT
