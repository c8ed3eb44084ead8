/// How a client's call ends.
#pragma once

#include <exception>

#include <ktasync/KTCancelled.h>
#include <ktasync/detail/Outcome.h>

#include "../base/Cancellation.h"

namespace KT {
namespace detail {

/// Makes the call; `error` is set to what it throws. No exception but the forced unwinding comes
/// out. The handlers have ended by then: nobody else holds the exception.
template <typename Call>
Outcome outcomeOf(const Call& call, std::exception_ptr& error)
{
    try {
        call();
        return Outcome::done;
    } catch (const KTCancelled&) {
        error = std::current_exception();
        return Outcome::cancelled;
    } catch (...) {
        error = std::current_exception();
        if (!error) {
            unwindOn();
        }
        return Outcome::failed;
    }
}

}  // namespace detail
}  // namespace KT
