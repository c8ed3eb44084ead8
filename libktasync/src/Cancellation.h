/// Where a thread may be cancelled: only inside of a client's callable, and in waits that say so.
#pragma once

#include <pthread.h>

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

private:
    friend class CancellationAsBefore;
    int previous = PTHREAD_CANCEL_ENABLE;
};

/// Inside the scope of a NoCancellation: as it was around that, for a scope.
class CancellationAsBefore {
public:
    explicit CancellationAsBefore(const NoCancellation& off)
    {
        pthread_setcancelstate(off.previous, nullptr);
    }
    ~CancellationAsBefore() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }
    CancellationAsBefore(const CancellationAsBefore&) = delete;
    CancellationAsBefore& operator=(const CancellationAsBefore&) = delete;
};

}  // namespace detail
}  // namespace KT
