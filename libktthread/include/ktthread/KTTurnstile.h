/// How the library's own objects are kept quick while several cores use them. Not for clients.
#pragma once

#include <atomic>

namespace KT {

/// Bytes that travel together between cores.
const int cacheLineSize = 64;

/// Stands in an object between what different threads write, so that no cache line has both.
struct KTCacheLineGap {
    char bytes[cacheLineSize];
};

/// Stands in front of a lock that is held for a few instructions at a time. The platform's locks
/// put a thread to sleep as soon as another has them, which costs a hundred times what is done
/// under these; here a thread waits its turn for about a microsecond first. It is no lock: who
/// doesn't get through in that time goes on to the lock all the same. Any thread may use it.
class KTTurnstile {
public:
    KTTurnstile() : taken(false) {}
    KTTurnstile(const KTTurnstile&) = delete;
    KTTurnstile& operator=(const KTTurnstile&) = delete;

    /// Whether the caller got through; it calls leave() then, once it has given the lock back.
    bool enter();
    void leave();

private:
    std::atomic<bool> taken;
};

}  // namespace KT
