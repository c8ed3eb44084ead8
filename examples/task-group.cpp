/// A task group: tasks that are waited for as one, may add further ones, and fail as one.
///
/// Prints:
///     a tree of 6 levels has 63 nodes
///     3 of 4 pages done, 1 failed: page 3 is blank
#include <atomic>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>

#include <ktasync/ktasync.h>

/// Counts the nodes of a binary tree, each in a task of its own.
void countNodes(KT::KTTaskGroup& group, std::atomic<int>& nodes, int levels)
{
    ++nodes;
    for (int child = 0; levels > 1 && child < 2; ++child) {
        group.run("count", countNodes, std::ref(group), std::ref(nodes), levels - 1);
    }
}

void print(int page)
{
    if (page == 3) {
        throw std::runtime_error("page " + std::to_string(page) + " is blank");
    }
}

int main()
{
    const KT::KTScopedPool pool;
    KT::KTTaskGroup group(pool);

    std::atomic<int> nodes(0);
    countNodes(group, nodes, 6);
    group.wait();  // runs what nobody has begun meanwhile
    std::printf("a tree of 6 levels has %d nodes\n", nodes.load());

    std::atomic<int> printed(0);
    for (int page = 1; page <= 4; ++page) {
        group.run("print", [page, &printed] {
            print(page);
            ++printed;
        });
    }
    try {
        group.wait();
    } catch (const std::runtime_error& error) {
        // All have ended; what the first of them threw that failed came out here.
        std::printf("%d of 4 pages done, %d failed: %s\n", printed.load(), group.failures(),
                    error.what());
    }
}
