/// Where a thread may be cancelled: only inside of a client's callable, and in waits that say so.
#pragma once

#include <cxxabi.h>
#include <pthread.h>

#ifdef _LIBCPPABI_VERSION
// Of the ABI, but not in the header.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
namespace __cxxabiv1 {
struct __cxa_eh_globals;                           // NOLINT(bugprone-reserved-identifier)
extern "C" __cxa_eh_globals* __cxa_get_globals();  // NOLINT(bugprone-reserved-identifier)
}  // namespace __cxxabiv1
#endif

namespace KT {
namespace detail {

/// Keeps the calling thread from being cancelled, for a scope: what goes on in it is done as a
/// whole, and its destructors can't be cut short, which would end the process.
class NoCancellation {
public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous); }
    ~NoCancellation() { pthread_setcancelstate(previous, nullptr); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

    /// What it was.
    int before() const { return previous; }

private:
    int previous = PTHREAD_CANCEL_ENABLE;
};

/// Sets that state where it is disabled, for a scope.
class CancelState {
public:
    explicit CancelState(int state) { pthread_setcancelstate(state, nullptr); }
    ~CancelState() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }
    CancelState(const CancelState&) = delete;
    CancelState& operator=(const CancelState&) = delete;
};

/// For a catch (...) that finds no exception: what came is the unwinding of a cancelled thread, and
/// this lets it go on.
[[noreturn]] inline void unwindOn()
{
#ifdef _LIBCPPABI_VERSION
    // With libc++abi a rethrow would raise an exception that nobody catches. So the handler forgets
    // what it has caught, first of the fields that the ABI names, and the unwinding starts again.
    *reinterpret_cast<void**>(abi::__cxa_get_globals()) = nullptr;
    pthread_exit(PTHREAD_CANCELED);
#else
    throw;
#endif
}

}  // namespace detail
}  // namespace KT
