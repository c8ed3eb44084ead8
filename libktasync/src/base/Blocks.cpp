#include "Blocks.h"

#include <array>
#include <atomic>
#include <iterator>
#include <new>
#include <utility>

#include <pthread.h>

namespace KT {
namespace detail {

namespace {

/// What posted tasks need, and those with a future or a group.
constexpr std::size_t blockSizes[] = {96, 128};
const std::size_t kinds = std::size(blockSizes);

#if defined(__SANITIZE_ADDRESS__)
/// A job that is used after its end must be found.
const bool areUsedAgain = false;
#else
const bool areUsedAgain = true;
#endif

/// A free block.
struct Free {
    Free* next;
};

/// A list of free blocks, full or not.
struct Magazine {
    static const int capacity = 16;
    Free* first = nullptr;
    int count = 0;

    void push(void* block)
    {
        first = new (block) Free{first};
        ++count;
    }
    void* pop()
    {
        --count;
        return std::exchange(first, first->next);
    }
    void freeAll()
    {
        while (first != nullptr) {
            ::operator delete(pop());
        }
    }
};

/// Full magazines on their way from one thread to another. Without locks, so that a child that was
/// forked in the middle of it all can go on.
class Rack {
public:
    /// False if there is no room.
    bool put(const Magazine& full)
    {
        for (std::atomic<Free*>& place : places) {
            Free* none = nullptr;
            if (place.load(std::memory_order_relaxed) == nullptr &&
                place.compare_exchange_strong(none, full.first, std::memory_order_release,
                                              std::memory_order_relaxed)) {
                return true;
            }
        }
        return false;
    }

    /// An empty one if there is none.
    Magazine take()
    {
        for (std::atomic<Free*>& place : places) {
            if (place.load(std::memory_order_relaxed) != nullptr) {
                if (Free* const first = place.exchange(nullptr, std::memory_order_acquire)) {
                    return {first, Magazine::capacity};
                }
            }
        }
        return {};
    }

private:
    std::array<std::atomic<Free*>, 64> places{};
};

std::array<Rack, kinds> racks;

/// What a thread has of a kind: a magazine in use, and a full one or none, so that taking and
/// giving in turn doesn't go to the rack each time.
struct Supply {
    Magazine inUse;
    Magazine full;
};

thread_local std::array<Supply, kinds> supplies;
thread_local bool isReturned = false;  ///< at the end of the thread

void returnAll(void* /*unused*/)
{
    for (Supply& supply : supplies) {
        supply.inUse.freeAll();
        supply.full.freeAll();
    }
    isReturned = false;
}

/// For `returnAll` at the end of a thread. A key rather than a thread-local object with a
/// destructor: registering that ends the process where the memory has run out. Made when the
/// library is loaded: until then, blocks aren't kept.
struct Key {
    Key() { isMade = pthread_key_create(&key, returnAll) == 0; }
    pthread_key_t key = 0;
    bool isMade;
};

const Key atEndOfThread;

/// False if the thread can't give back at its end what it has: it must have nothing then.
bool returnsAtItsEnd()
{
    if (!isReturned) {
        isReturned = atEndOfThread.isMade && pthread_setspecific(atEndOfThread.key, &supplies) == 0;
    }
    return isReturned;
}

/// Of a block for `size` bytes; `kinds` if no block is as large.
std::size_t kindFor(std::size_t size)
{
    std::size_t kind = 0;
    while (kind < kinds && size > blockSizes[kind]) {
        ++kind;
    }
    return kind;
}

}  // namespace

void* takeBlock(std::size_t size)
{
    const std::size_t kind = kindFor(size);
    if (!areUsedAgain || kind == kinds) {
        return ::operator new(size);
    }
    Supply& supply = supplies[kind];
    if (supply.inUse.count == 0) {
        std::swap(supply.inUse, supply.full);
    }
    if (supply.inUse.count == 0 && returnsAtItsEnd()) {
        supply.inUse = racks[kind].take();
    }
    return supply.inUse.count == 0 ? ::operator new(blockSizes[kind]) : supply.inUse.pop();
}

void giveBlock(void* block, std::size_t size)
{
    const std::size_t kind = kindFor(size);
    if (!areUsedAgain || kind == kinds || !returnsAtItsEnd()) {
        ::operator delete(block);
        return;
    }
    Supply& supply = supplies[kind];
    if (supply.inUse.count == Magazine::capacity) {
        if (supply.full.count != 0 && !racks[kind].put(supply.full)) {
            supply.full.freeAll();
        }
        supply.full = std::exchange(supply.inUse, Magazine());
    }
    supply.inUse.push(block);
}

}  // namespace detail
}  // namespace KT
