#include "Order.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <execinfo.h>
#include <pthread.h>
#include <unistd.h>

#include "SpinLock.h"

namespace order {
namespace {

/// Frames of a place in the program, innermost first; the rest is null.
const std::size_t depth = 8;
using Place = std::array<void*, depth>;

/// What tells apart the makers of locks: the maker, and who called it.
const std::size_t framesOfMaker = 5;

/// A fixed number of slots, found by hashing. Those whose use has ended can be used again.
template <typename Value, std::size_t size>
class Table {
public:
    /// The value for `key`, a new one if there is none; null if the table is full.
    Value* find(std::uintptr_t key, bool add)
    {
        Slot* unused = nullptr;
        for (std::size_t look = 0; look < size; ++look) {
            Slot& slot = slots[((key * 0x9E3779B97F4A7C15U >> 20U) + look) & (size - 1)];
            if (slot.key == key) {
                return &slot.value;
            }
            if (slot.key <= wasUsed && unused == nullptr) {
                unused = &slot;
            }
            if (slot.key == neverUsed) {
                break;
            }
        }
        if (!add || unused == nullptr) {
            return nullptr;
        }
        unused->key = key;
        unused->value = Value();
        return &unused->value;
    }

    void remove(std::uintptr_t key)
    {
        if (Value* const value = find(key, false)) {
            reinterpret_cast<Slot*>(reinterpret_cast<char*>(value) - offsetof(Slot, value))->key =
                wasUsed;
        }
    }

    template <typename Action>
    void forEach(const Action& action) const
    {
        for (const Slot& slot : slots) {
            if (slot.key > wasUsed) {
                action(slot.key, slot.value);
            }
        }
    }

private:
    static const std::uintptr_t neverUsed = 0;
    static const std::uintptr_t wasUsed = 1;
    struct Slot {
        std::uintptr_t key;
        Value value;
    };
    Slot slots[size];
};

/// Locks made at one place are of one kind; so are those taken at one place whose making was not
/// reported.
struct Kind {
    std::uintptr_t number;
    bool isMade;
    Place place;
};

/// One lock was requested while another was held.
struct Edge {
    std::uintptr_t held;
    Mode heldMode;
    std::uintptr_t wanted;
    Mode wantedMode;
    std::uintptr_t times;
    Place place;  ///< of the first time
};

struct Seen {
    SpinLock lock;
    std::uintptr_t kinds;
    Table<std::uintptr_t, 1U << 17U> kindOfLock;
    Table<Kind, 1U << 13U> kindOfPlace;
    Table<Edge, 1U << 15U> edges;
    bool isFull;
};

Seen seen;

class Hold {
public:
    Hold() { seen.lock.lock(); }
    ~Hold() { seen.lock.unlock(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
};

const std::size_t mostHeld = 64;
thread_local Held heldLocks[mostHeld];
thread_local std::size_t heldCount = 0;

/// Where the calling thread is, without the recorder's own innermost frames.
Place here(std::size_t own)
{
    std::array<void*, depth + 4> frames{};
    const int found = backtrace(frames.data(), static_cast<int>(frames.size()));
    Place place{};
    if (found > static_cast<int>(own)) {
        const std::size_t count = std::min(static_cast<std::size_t>(found) - own, depth);
        std::copy_n(frames.begin() + static_cast<std::ptrdiff_t>(own), count, place.begin());
    }
    return place;
}

std::uintptr_t keyOf(const Place& place)
{
    std::uintptr_t key = 0;
    for (void* const frame : place) {
        key = key * 1000003U ^ reinterpret_cast<std::uintptr_t>(frame);
    }
    return key | 2U;
}

std::uintptr_t kindOfPlaceLocked(const Place& place, bool isMade)
{
    Kind* const kind = seen.kindOfPlace.find(keyOf(place), true);
    if (kind == nullptr) {
        seen.isFull = true;
        return 0;
    }
    if (kind->number == 0) {
        *kind = {++seen.kinds, isMade, place};
    }
    return kind->number;
}

std::uintptr_t kindOf(const void* lock, void* place)
{
    const Hold hold;
    if (const std::uintptr_t* const kind =
            seen.kindOfLock.find(reinterpret_cast<std::uintptr_t>(lock), false)) {
        return *kind;
    }
    return kindOfPlaceLocked(Place{place}, false);
}

void addEdge(const Held& held, const Held& wanted)
{
    const std::uintptr_t modes =
        (held.mode == Mode::shared ? 0U : 1U) + (wanted.mode == Mode::shared ? 0U : 2U);
    const Hold hold;
    Edge* const edge =
        seen.edges.find(held.kind << 32U | wanted.kind << 8U | modes << 2U | 2U, true);
    if (edge == nullptr) {
        seen.isFull = true;
    } else if (edge->times++ == 0) {
        *edge = {held.kind, held.mode, wanted.kind, wanted.mode, 1, here(4)};
    }
}

void addEdges(const Held& wanted)
{
    for (std::size_t i = 0; i < heldCount; ++i) {
        if (heldLocks[i].lock != wanted.lock) {
            addEdge(heldLocks[i], wanted);
        }
    }
}

void push(const Held& held)
{
    if (heldCount < mostHeld) {
        heldLocks[heldCount++] = held;
    }
}

void print(std::FILE* file, const Place& place)
{
    for (void* const frame : place) {
        Dl_info info{};
        if (frame != nullptr && dladdr(frame, &info) != 0) {
            std::fprintf(file, " %s+%#lx", info.dli_fname,
                         reinterpret_cast<unsigned long>(frame) -
                             reinterpret_cast<unsigned long>(info.dli_fbase));
        }
    }
    std::fputc('\n', file);
}

}  // namespace

void made(const void* lock)
{
    Place place = here(2);
    std::fill(place.begin() + framesOfMaker, place.end(), nullptr);
    const Hold hold;
    const std::uintptr_t kind = kindOfPlaceLocked(place, true);
    if (std::uintptr_t* const known =
            seen.kindOfLock.find(reinterpret_cast<std::uintptr_t>(lock), true)) {
        *known = kind;
    } else {
        seen.isFull = true;
    }
}

void destroyed(const void* lock)
{
    const Hold hold;
    seen.kindOfLock.remove(reinterpret_cast<std::uintptr_t>(lock));
}

void wanted(const void* lock, Mode mode, void* place)
{
    if (heldCount > 0) {
        addEdges({lock, kindOf(lock, place), mode});
    }
}

void taken(const void* lock, Mode mode, void* place)
{
    push({lock, kindOf(lock, place), mode});
}

Held released(const void* lock)
{
    Held* const end = heldLocks + heldCount;
    Held* const found =
        std::find_if(heldLocks, end, [lock](const Held& held) { return held.lock == lock; });
    if (found == end) {
        return {lock, 0, Mode::exclusive};
    }
    const Held held = *found;
    std::copy(found + 1, end, found);
    --heldCount;
    return held;
}

void takenAgain(const Held& held)
{
    addEdges(held);
    push(held);
}

void begin()
{
    here(0);  // the first look at a stack allocates memory
    // A child must not inherit the lock from a thread that it doesn't have. Of the handlers, the
    // first registered takes its lock last and releases it first: those of others are recorded.
    pthread_atfork([] { seen.lock.lock(); }, [] { seen.lock.unlock(); },
                   [] { seen.lock.unlock(); });
}

void write()
{
    const char* const folder = std::getenv("KT_LOCK_ORDER");
    if (folder == nullptr) {
        return;
    }
    char path[4096];
    std::snprintf(path, sizeof path, "%s/%d.order", folder, static_cast<int>(getpid()));
    std::FILE* const file = std::fopen(path, "a");
    if (file == nullptr) {
        std::perror(path);
        return;
    }
    const Hold hold;
    std::fprintf(file, "process %s\n", seen.isFull ? "full" : "whole");
    seen.kindOfPlace.forEach([file](std::uintptr_t, const Kind& kind) {
        std::fprintf(file, "kind %lu %s", kind.number, kind.isMade ? "made" : "taken");
        print(file, kind.place);
    });
    seen.edges.forEach([file](std::uintptr_t, const Edge& edge) {
        std::fprintf(file, "edge %lu %d %lu %d %lu", edge.held, static_cast<int>(edge.heldMode),
                     edge.wanted, static_cast<int>(edge.wantedMode), edge.times);
        print(file, edge.place);
    });
    std::fclose(file);
}

}  // namespace order
