/// The allocations of the calling thread, counted and made to fail: a program that links this has
/// its own operator new.
#pragma once

namespace allocations {

extern thread_local long made;   ///< so far
extern thread_local long alive;  ///< made by this thread less released by it
/// How many go well until one fails; none does if negative.
extern thread_local long untilFailure;

}  // namespace allocations
