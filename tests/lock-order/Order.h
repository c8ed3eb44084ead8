/// In which order the threads of a process take locks.
///
/// Never allocates by operator new, which tests replace, and takes no lock that it records. All of
/// it may be called from any thread; nothing throws.
#pragma once

#include <cstdint>

namespace order {

/// How a lock is held or requested. Shared holds don't exclude each other.
enum class Mode { shared, exclusive };

/// A lock has been made, or destroyed. One whose making is not reported, such as a std::mutex, is
/// known by the places where it is taken.
void made(const void* lock);
void destroyed(const void* lock);

struct Held {
    const void* lock;
    std::uintptr_t kind;
    Mode mode;
};

/// The calling thread is about to wait for `lock`, at `place`; it has taken it; it has released it.
void wanted(const void* lock, Mode mode, void* place);
void taken(const void* lock, Mode mode, void* place);
Held released(const void* lock);

/// The calling thread has taken again what it had released during a wait.
void takenAgain(const Held& held);

/// Gets ready for the process's first lock.
void begin();

/// Writes what has been seen to the folder that the environment's KT_LOCK_ORDER names.
void write();

}  // namespace order
