/// More requests than there is room for, and the end.
#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

#include "Fixture.h"

namespace {

class Load : public KtserveTest {};
class Stop : public KtserveTest {};

/// A client that has sent a request and waits.
std::unique_ptr<Client> ask(int port, const std::string& path)
{
    auto client = std::make_unique<Client>(port);
    client->send(requestOf(path));
    return client;
}

/// A client that has sent half of a request, which `finish` completes.
std::unique_ptr<Client> begin(int port)
{
    auto client = std::make_unique<Client>(port);
    client->send("GET /healthz HTTP/1.1\r\n");
    return client;
}

void finish(const Client& begun)
{
    begun.send("Host: localhost\r\n\r\n");
}

bool untilNotReady(int port)
{
    return until([port] { return get(port, "/readyz").status == 503; });
}

TEST_F(Load, OfManyConnectionsIsAnswered)
{
    start();
    std::atomic<int> answered(0);
    const int count = 4;
    std::vector<std::thread> clients;
    clients.reserve(count);
    for (int i = 0; i < count; ++i) {
        clients.emplace_back([&] {
            for (int k = 0; k < 500; ++k) {
                answered += get(port, "/sum/abc").status == 200 ? 1 : 0;
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(2000, answered);
}

TEST_F(Load, BeyondTheQueueIsRefusedAtOnce)
{
    start({"--max-threads", "1", "--max-queued", "1", "--retry-after-s", "7"});
    const auto running = ask(port, "/sleep/60000");
    ASSERT_TRUE(untilPoolHas(1, 0));
    const auto waiting = ask(port, "/sleep/60000");
    ASSERT_TRUE(untilPoolHas(1, 1));
    for (int i = 0; i < 100; ++i) {
        const Reply reply = get(port, "/sum/abc");
        ASSERT_EQ(503, reply.status);
        ASSERT_NE(std::string::npos, reply.head.find("Retry-After: 7\r\n")) << reply.head;
        ASSERT_TRUE(reply.isWhole);
    }
    EXPECT_EQ(200, get(adminPort, "/healthz").status);
}

TEST_F(Load, ThatIsOverLeavesTheServiceAsItWas)
{
    start({"--max-threads", "1", "--max-queued", "1", "--client-timeout-ms", "60000"});
    const auto running = begin(port);
    ASSERT_TRUE(untilPoolHas(1, 0));
    const auto waiting = ask(port, "/sum/abc");
    ASSERT_TRUE(untilPoolHas(1, 1));
    EXPECT_EQ(503, get(port, "/sum/abc").status);
    finish(*running);
    EXPECT_EQ(200, running->reply().status);
    EXPECT_EQ(200, waiting->reply().status);
    ASSERT_TRUE(untilPoolHas(0, 0));
    EXPECT_EQ(200, get(port, "/sum/abc").status);
}

TEST_F(Stop, OfAnIdleServiceSucceeds)
{
    start();
    program->tell(SIGTERM);
    expectEnd(0);
}

TEST_F(Stop, ByCtrlCSucceeds)
{
    start();
    program->tell(SIGINT);
    expectEnd(0);
}

TEST_F(Stop, FinishesWhatRunsAndWhatWaits)
{
    start({"--max-threads", "1", "--client-timeout-ms", "60000"});
    const auto running = begin(port);
    ASSERT_TRUE(untilPoolHas(1, 0));
    const auto waiting = ask(port, "/sum/abc");
    ASSERT_TRUE(untilPoolHas(1, 1));
    program->tell(SIGTERM);
    ASSERT_TRUE(untilNotReady(adminPort));
    finish(*running);
    EXPECT_EQ(200, running->reply().status);
    EXPECT_EQ(200, waiting->reply().status);
    expectEnd(0);
}

TEST_F(Stop, TellsThatItIsNotReadyAnyLonger)
{
    start();
    const auto running = ask(port, "/sleep/60000");
    ASSERT_TRUE(untilPoolHas(1, 0));
    program->tell(SIGTERM);
    ASSERT_TRUE(untilNotReady(adminPort));
    EXPECT_EQ(200, get(adminPort, "/healthz").status);

    program->tell(SIGTERM);  // forces
    EXPECT_EQ(0, running->reply().status);
    expectEnd(1);
}

TEST_F(Stop, ServesOnWhileItDrains)
{
    start({"--drain-ms", "600000"});
    program->tell(SIGTERM);
    ASSERT_TRUE(untilNotReady(port));
    EXPECT_EQ(200, get(port, "/sum/abc").status);
    program->tell(SIGTERM);
    expectEnd(1);
}

TEST_F(Stop, AnswersWhatItCannotFinishInTime)
{
    start({"--grace-ms", "0"});
    const auto running = ask(port, "/sleep/60000");
    ASSERT_TRUE(untilPoolHas(1, 0));
    program->tell(SIGTERM);
    EXPECT_EQ(503, running->reply().status);
    expectEnd(1);
}

TEST_F(Stop, AnswersWhatItCannotBeginInTime)
{
    start({"--max-threads", "1", "--grace-ms", "0"});
    const auto running = ask(port, "/sleep/60000");
    ASSERT_TRUE(untilPoolHas(1, 0));
    const auto waiting = ask(port, "/sleep/60000");
    ASSERT_TRUE(untilPoolHas(1, 1));
    program->tell(SIGTERM);
    EXPECT_EQ(503, running->reply().status);
    EXPECT_EQ(503, waiting->reply().status);
    expectEnd(1);
}

}  // namespace
