#include "Plan.h"

#include <set>

#include <gtest/gtest.h>

namespace {

const int many = 10000;

TEST(Plan, IsTheSameFromTheSameSeed)
{
    Plan first(Mix(), 7);
    Plan second(Mix(), 7);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(first.next().target, second.next().target);
    }
}

TEST(Plan, HasTheSharesAskedFor)
{
    Mix mix;
    mix.file = "small";
    mix.sum = "123";
    Plan plan(mix, 1);
    int blocking = 0;
    int sums = 0;
    for (int i = 0; i < many; ++i) {
        const Request request = plan.next();
        blocking += request.blocks ? 1 : 0;
        sums += request.target.find("/sum/small?id=") == 0 ? 1 : 0;
    }
    EXPECT_NEAR(0.3, 1.0 * blocking / many, 0.02);
    EXPECT_NEAR(0.35, 1.0 * sums / many, 0.02);
}

TEST(Plan, BlocksForTheTimesAskedFor)
{
    Mix mix;
    mix.blockingShare = 1;
    mix.leastMs = 20;
    mix.mostMs = 22;
    Plan plan(mix, 1);
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        const std::string target = plan.next().target;
        seen.insert(target.substr(0, target.find('?')));
    }
    EXPECT_EQ((std::set<std::string>{"/sleep/20", "/sleep/21", "/sleep/22"}), seen);
}

TEST(Plan, GivesEachRequestItsOwnBody)
{
    Plan plan(Mix(), 1);
    std::set<std::string> bodies;
    for (int i = 0; i < 1000; ++i) {
        const Request request = plan.next();
        EXPECT_EQ("?id=" + std::to_string(i), request.target.substr(request.target.find('?')));
        bodies.insert(request.body);
    }
    EXPECT_EQ(1000U, bodies.size());
}

}  // namespace
