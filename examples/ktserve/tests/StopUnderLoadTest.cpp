/// SIGTERM while clients come as fast as they can.
#include <atomic>
#include <csignal>
#include <string>

#include "Fixture.h"
#include "Scale.h"

namespace {

using StopUnderLoad = KtserveTest;

struct Counts {
    std::atomic<int> served{0};
    std::atomic<int> refused{0};
    std::atomic<int> lost{0};
};

/// Requests, one after the other, until the service lets nobody in.
void askUntilRefused(int port, Counts& counts)
{
    for (int number = 0;; ++number) {
        const Client client(port);
        if (!client.isConnected()) {
            return;
        }
        client.send(requestOf(number % 2 == 0 ? "/sum/abc" : "/sleep/2"));
        const Reply reply = client.reply();
        if (reply.status == 200 && reply.isWhole) {
            ++counts.served;
        } else if (reply.status == 503 && reply.isWhole) {
            ++counts.refused;
        } else {
            ++counts.lost;
        }
    }
}

// Whoever has connected is answered, also if the connection was still in the kernel's queue when
// the signal came.
TEST_F(StopUnderLoad, AnswersEveryoneWhoIsConnected)
{
    const int rounds = scaled(5);
    for (int round = 0; round < rounds; ++round) {
        start({"--max-threads", "8", "--max-queued", "16"});
        Counts counts;
        std::thread stopper([&] {
            const int load = 100 + 50 * (round % 5);
            EXPECT_TRUE(until([&] { return counts.served >= load; }));
            program->tell(SIGTERM);
        });
        onThreads(40, [&](int) { askUntilRefused(port, counts); });
        stopper.join();
        EXPECT_EQ(0, counts.lost) << "of " << counts.served + counts.refused;
        expectEnd(0);
    }
}

}  // namespace
