#include "ParkingPlace.h"

#include <array>
#include <cstdint>
#include <new>

#include <pthread.h>

namespace KT {
namespace detail {

namespace {

class Table {
public:
    /// Never destroyed: static objects may wait until the very end.
    static Table& instance()
    {
        static Table* const table = new (storage) Table;
        return *table;
    }

    ParkingPlace& of(const void* object)
    {
        const auto address = reinterpret_cast<std::uintptr_t>(object);
        // Jobs are 112 bytes apart or more; the factor spreads what is in between over all bits.
        return places[address / 64 * 0x9E3779B97F4A7C15U >> (64 - bits)];
    }

private:
    static const int bits = 6;
    alignas(64) static unsigned char storage[];

    Table() { pthread_atfork(nullptr, nullptr, renew); }

    /// In a child: its only thread waits nowhere, and the threads that locked some don't exist.
    static void renew() { new (&instance().places) std::array<ParkingPlace, 1U << bits>; }

    std::array<ParkingPlace, 1U << bits> places;
};

alignas(64) unsigned char Table::storage[sizeof(Table)];

}  // namespace

ParkingPlace& ParkingPlace::of(const void* object)
{
    return Table::instance().of(object);
}

}  // namespace detail
}  // namespace KT
