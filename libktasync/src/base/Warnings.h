/// What this library says in the log.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "Cancellation.h"

namespace KT {
namespace detail {

/// How the records of a pool of that name begin; empty for an empty name. Throws std::bad_alloc.
std::string poolLabel(std::string_view name);

/// Logs that `task` threw `error`, of the pool with the `label`. Throws nothing.
void logUnseen(std::string_view label, std::string_view task, const std::exception_ptr& error);

/// Writes a warning of this library. Throws std::bad_alloc.
void writeWarning(const char* function, const std::string& text);

/// The same with the text that `makeText` makes, and throws nothing: without memory there is no
/// record.
template <typename MakeText>
void logWarning(const char* function, const MakeText& makeText)
{
    const NoCancellation off;
    try {
        writeWarning(function, makeText());
    } catch (const std::exception&) {
        // The memory ran out.
    }
}

}  // namespace detail
}  // namespace KT
