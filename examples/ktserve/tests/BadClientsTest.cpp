/// Clients that vanish, dawdle, send rubbish and reset, while others are served.
#include <atomic>
#include <csignal>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/socket.h>

#include "Fixture.h"
#include "Scale.h"

namespace {

class BadClients : public KtserveTest {
protected:
    /// Requests that must be answered while `isBad` lasts, and some more.
    int unanswered(const std::atomic<bool>& isBad, int atLeast) const
    {
        int lost = 0;
        for (int number = 0; number < atLeast || isBad; ++number) {
            const std::string id = "X-Request-Id: " + std::to_string(number) + "\r\n";
            const Reply reply = get(port, "/sum/abc", id);
            const bool isIts = reply.head.find(id) != std::string::npos;
            lost += reply.status == 200 && reply.isWhole && isIts ? 0 : 1;
        }
        return lost;
    }

    /// That nothing is left of the bad ones.
    void expectNothingLeft(int before)
    {
        EXPECT_TRUE(untilPoolHas(0, 0));
        EXPECT_TRUE(until([&] { return sockets() <= before; }));
        program->tell(SIGTERM);
        expectEnd(0);
    }
};

std::string rubbish(std::mt19937& dice)
{
    std::string bytes(dice() % 3000, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(dice());
    }
    return bytes + (dice() % 2 == 0 ? "\r\n\r\n" : "");
}

/// One that does something of that, and goes.
void misbehave(int port, std::mt19937& dice)
{
    Client client(port);
    const std::string request = requestOf("/metrics");
    switch (dice() % 5) {
        case 0: client.send(request.substr(0, dice() % request.size())); break;
        case 1: client.send(request); break;
        case 2:
            client.send(request);
            char first;
            static_cast<void>(recv(client.descriptor(), &first, 1, 0));
            break;
        case 3: client.send(rubbish(dice)); break;
        default: break;
    }
    if (dice() % 2 == 0) {
        client.reset();
    }
}

TEST_F(BadClients, ThatVanishLeaveNothing)
{
    start({"--client-timeout-ms", "2000"});
    const int before = sockets();
    std::atomic<bool> isBad(true);
    std::atomic<int> lost(0);
    std::thread good([&] { lost += unanswered(isBad, 10); });
    onThreads(4, [&](int thread) {
        std::mt19937 dice(static_cast<unsigned>(thread));
        const int count = scaled(500);
        for (int i = 0; i < count; ++i) {
            misbehave(port, dice);
        }
    });
    isBad = false;
    good.join();
    EXPECT_EQ(0, lost);
    expectNothingLeft(before);
}

/// Sends a byte of a request now and then, on all of them, until the server has closed them all.
void dribble(const std::vector<std::unique_ptr<Client>>& clients)
{
    std::size_t closed = 0;
    std::vector<pollfd> sockets;
    sockets.reserve(clients.size());
    for (const auto& client : clients) {
        sockets.push_back({client->descriptor(), POLLIN, 0});
    }
    while (closed < clients.size()) {
        poll(nullptr, 0, 100);  // that slow
        poll(sockets.data(), sockets.size(), 0);
        for (std::size_t i = 0; i < sockets.size(); ++i) {
            if (sockets[i].revents != 0) {
                sockets[i].fd = -1;
                sockets[i].revents = 0;
                ++closed;
            } else if (sockets[i].fd >= 0) {
                clients[i]->send("x");
            }
        }
    }
}

TEST_F(BadClients, ThatDribbleDoNotKeepOthersOut)
{
    start({"--client-timeout-ms", "500", "--max-threads", "16"});
    const int before = sockets();
    const int rounds = scaled(1);
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::unique_ptr<Client>> slow;
        for (int i = 0; i < 40; ++i) {
            slow.push_back(std::make_unique<Client>(port));
            slow.back()->send("GET /healthz HTTP/1.1\r\nX: ");
        }
        std::atomic<bool> isBad(true);
        std::atomic<int> lost(0);
        std::thread good([&] { lost += unanswered(isBad, 10); });
        dribble(slow);
        isBad = false;
        good.join();
        EXPECT_EQ(0, lost);
        for (const auto& client : slow) {
            EXPECT_EQ(408, client->reply().status);
        }
    }
    expectNothingLeft(before);
}

}  // namespace
