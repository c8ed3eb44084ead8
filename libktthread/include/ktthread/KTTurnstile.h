/// \file
/// How the library's own objects are kept quick while several cores use them. Not for clients.
#pragma once

#include <atomic>

namespace KT {

/// Bytes that travel together between cores.
///
/// \ingroup ktthread_own
const int cacheLineSize = 64;

/// Stands in an object between what different threads write, so that no cache line has both.
///
/// \ingroup ktthread_own
struct KTCacheLineGap {
    /// Never looked at.
    char bytes[cacheLineSize];
};

/// Stands in front of a lock that is held for a few instructions at a time. The platform's locks
/// put a thread to sleep as soon as another has them, which costs a hundred times what is done
/// under these; here a thread waits its turn for about a microsecond first. It is no lock: who
/// doesn't get through in that time goes on to the lock all the same. Any thread may use it. It
/// can't be copied. Nothing here throws, or is a cancellation point.
/// \code
/// const bool entered = turnstile.enter();
/// {
///     KT::KTCriticalSection hold(mutex);
///     ++counter;
/// }
/// if (entered) {
///     turnstile.leave();
/// }
/// \endcode
///
/// \ingroup ktthread_own
class KTTurnstile {
public:
    /// Nobody is in it.
    KTTurnstile() : taken(false) {}
    KTTurnstile(const KTTurnstile&) = delete;
    KTTurnstile& operator=(const KTTurnstile&) = delete;

    /// Waits for about a microsecond at most, without sleeping.
    ///
    /// \return  whether the caller got through; it calls leave() then, once it has given the lock
    ///          back
    bool enter();

    /// Lets the next one through. Only for who got through.
    void leave();

private:
    std::atomic<bool> taken;
};

}  // namespace KT
