#include "Sizes.h"

#include <algorithm>

Sizes::Sizes(int threads, int most) : maxThreads(most), possible{{threads, 0}} {}

// A pool that counts more than it may have, before a failed init, doesn't grow.
Sizes::Pair Sizes::grown(Pair from, int count) const
{
    const long long target =
        std::min<long long>(static_cast<long long>(from.first) + count, maxThreads);
    return {std::max(from.first, static_cast<int>(target)), 0};
}

void Sizes::letRetire()
{
    Pairs all = possible;
    for (Pair pair : possible) {
        while (pair.first >= 1 && pair.second >= 1) {
            --pair.first;
            --pair.second;
            all.insert(pair);
        }
    }
    possible.swap(all);
}

bool Sizes::narrow(Pairs found)
{
    if (found.empty()) {
        return false;
    }
    possible.swap(found);
    letRetire();
    return true;
}

bool Sizes::adjusted(int delta, bool answer)
{
    letRetire();
    Pairs found;
    for (const Pair& pair : possible) {
        const int live = pair.first;
        if (delta == 0 || live < 1) {
            if (!answer) {
                found.insert(pair);
            }
        } else if (delta > 0) {
            if (answer == (delta <= static_cast<long long>(maxThreads) - live)) {
                found.insert(grown(pair, delta));
            }
        } else if (live <= 18) {
            if (answer) {
                found.insert(pair);
            }
        } else if (answer == (delta > -live)) {
            found.insert({live, answer ? -delta : live - 1});
        }
    }
    return narrow(std::move(found));
}

bool Sizes::increased(bool answer)
{
    letRetire();
    Pairs found;
    for (const Pair& pair : possible) {
        const bool isFull = pair.first == maxThreads;
        if (answer == isFull) {
            continue;
        }
        const bool grows = pair.first >= 0 && pair.first < maxThreads;
        found.insert(grows ? grown(pair, 5) : pair);
    }
    return narrow(std::move(found));
}

void Sizes::looked(int leastBusy, int mostBusy)
{
    letRetire();
    Pairs found;
    for (const Pair& pair : possible) {
        if (mostBusy + 1 < pair.first) {
            found.insert(pair);
            continue;
        }
        if (leastBusy + 1 < pair.first) {
            found.insert(pair);
        }
        // Some may retire between the look and the growth.
        for (Pair later = pair; later.second >= 0 && later.first >= 1;
             --later.first, --later.second) {
            found.insert(grown(later, 1));
        }
        if (pair.first < 1) {
            found.insert(pair);
        }
    }
    narrow(std::move(found));
}

// A task that ends meanwhile may make the monitor cancel retirements that are pending.
void Sizes::stopped()
{
    letRetire();
    Pairs found;
    for (const Pair& pair : possible) {
        for (int toRemove = 0; toRemove <= pair.second; ++toRemove) {
            found.insert({0, toRemove});
        }
    }
    possible.swap(found);
}

bool Sizes::observed(int threads, int toRemove)
{
    if (!mayBe(threads, toRemove)) {
        return false;
    }
    possible = {{threads, toRemove}};
    letRetire();
    return true;
}
