/// Many requests, each with a number of its own.
#include <atomic>
#include <csignal>
#include <string>

#include "Fixture.h"
#include "Scale.h"

namespace {

using ManyRequests = KtserveTest;

/// Whether the answer is this request's, whole, and there is only one.
bool isAnswered(int port, int number)
{
    const std::string id = "X-Request-Id: " + std::to_string(number) + "\r\n";
    const Reply reply = get(port, "/healthz", id);
    return reply.status == 200 && reply.isWhole && reply.body == "alive\n" &&
           reply.head.find(id) != std::string::npos;
}

TEST_F(ManyRequests, GetTheirOwnAnswersOnce)
{
    start();
    const int requests = scaled(10000);
    std::atomic<int> next(0);
    std::atomic<int> answered(0);
    onThreads(8, [&](int) {
        for (int number = next++; number < requests; number = next++) {
            answered += isAnswered(port, number) ? 1 : 0;
        }
    });
    EXPECT_EQ(requests, answered);

    const std::string all = "outcome=\"done\",pool=\"http\"} " + std::to_string(requests) + "\n";
    EXPECT_TRUE(
        until([&] { return get(adminPort, "/metrics").body.find(all) != std::string::npos; }));
    program->tell(SIGTERM);
    expectEnd(0);
}

}  // namespace
