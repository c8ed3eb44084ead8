#include "Source.h"

#include <utility>

Shard::Shard(std::unique_ptr<Source> all, Source& counted, std::uint64_t part, std::uint64_t parts)
    : whole(std::move(all)), left(0)
{
    Entry entry;
    std::uint64_t count = 0;
    while (counted.next(entry)) {
        ++count;
    }
    // The first parts take one more where it doesn't come out even.
    const std::uint64_t each = count / parts;
    const std::uint64_t longer = count % parts;
    const std::uint64_t before = part - 1;
    left = each + (before < longer ? 1 : 0);
    std::uint64_t skip = before * each + (before < longer ? before : longer);
    while (skip > 0 && whole->next(entry)) {
        --skip;
    }
}

bool Shard::next(Entry& entry)
{
    if (left == 0 || !whole->next(entry)) {
        return false;
    }
    --left;
    return true;
}
