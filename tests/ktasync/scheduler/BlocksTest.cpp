#include <cstddef>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include <malloc.h>

#include <gtest/gtest.h>

#include "base/Blocks.h"

namespace {

using KT::detail::giveBlock;
using KT::detail::takeBlock;

TEST(Blocks, AreNeverInUseTwice)
{
    std::set<void*> inUse;
    for (int round = 0; round < 50; ++round) {
        for (int i = 0; i < 100; ++i) {
            void* const block = takeBlock(100);
            std::memset(block, round, 100);
            EXPECT_TRUE(inUse.insert(block).second);
        }
        for (int i = 0; i < 70; ++i) {
            giveBlock(*inUse.begin(), 100);
            inUse.erase(inUse.begin());
        }
    }
    for (void* const block : inUse) {
        giveBlock(block, 100);
    }
}

/// Those of each size have a list of their own.
TEST(Blocks, HaveTheSizeThatWasTaken)
{
    for (int round = 0; round < 3; ++round) {
        for (const std::size_t size :
             {std::size_t(1), std::size_t(96), std::size_t(97), std::size_t(128)}) {
            std::vector<void*> blocks(100);
            for (void*& block : blocks) {
                block = takeBlock(size);
                EXPECT_GE(malloc_usable_size(block), size);
            }
            for (void* const block : blocks) {
                giveBlock(block, size);
            }
        }
    }
}

TEST(Blocks, MayBeLarger)
{
    void* const block = takeBlock(5000);
    std::memset(block, 1, 5000);
    EXPECT_EQ(static_cast<const char*>(block)[4999], 1);
    giveBlock(block, 5000);
}

/// What the threads still have at their ends isn't lost, which the leak checkers would see.
TEST(Blocks, ChangeThreads)
{
    for (int round = 0; round < 20; ++round) {
        std::vector<void*> blocks(1000);
        std::thread([&blocks] {
            for (void*& block : blocks) {
                block = takeBlock(128);
                std::memset(block, 1, 128);
            }
        }).join();
        std::thread([&blocks] {
            for (void* const block : blocks) {
                EXPECT_EQ(static_cast<const char*>(block)[127], 1);
                giveBlock(block, 128);
            }
        }).join();
    }
}

}  // namespace
