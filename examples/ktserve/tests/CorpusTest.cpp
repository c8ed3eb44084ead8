/// Requests that a fuzzer begins with, and what can be made of them, over a socket.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <sys/socket.h>

#include "Fixture.h"
#include "Scale.h"

namespace {

using Corpus = KtserveTest;

std::vector<std::string> corpus()
{
    std::vector<std::string> requests;
    for (const auto& entry : std::filesystem::directory_iterator(KTSERVE_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        requests.emplace_back(std::istreambuf_iterator<char>(file),
                              std::istreambuf_iterator<char>());
    }
    return requests;
}

/// Bytes changed, left out, repeated, and parts of others.
std::string mutation(const std::vector<std::string>& requests, std::mt19937& dice)
{
    std::string text = requests[dice() % requests.size()];
    for (unsigned changes = 1 + dice() % 4; changes > 0; --changes) {
        const std::size_t at = dice() % (text.size() + 1);
        const std::string& other = requests[dice() % requests.size()];
        switch (dice() % 4) {
            case 0: text.insert(at, 1, static_cast<char>(dice())); break;
            case 1: text.erase(at, dice() % 8); break;
            case 2: text.insert(at, text.substr(at / 2, dice() % 300)); break;
            default: text.insert(at, other.substr(dice() % (other.size() + 1), dice() % 40));
        }
    }
    return text;
}

/// What may come back. 0: it is closed without an answer.
const std::set<int> expected = {0, 200, 400, 403, 404, 405, 413, 414, 416, 431, 503};

void expectAnswerOrClose(int port, const std::string& request)
{
    const Client client(port);
    client.send(request);
    shutdown(client.descriptor(), SHUT_WR);
    const Reply reply = client.reply();
    EXPECT_EQ(1U, expected.count(reply.status))
        << reply.status << " to " << testing::PrintToString(request);
    EXPECT_EQ(std::string::npos, reply.body.find("secret"));
}

TEST_F(Corpus, AndItsMutationsAreAnsweredOrClosed)
{
    start({"--client-timeout-ms", "1000"});
    const std::vector<std::string> requests = corpus();
    ASSERT_FALSE(requests.empty());
    for (const std::string& request : requests) {
        expectAnswerOrClose(port, request);
        ASSERT_EQ(200, get(port, "/sum/abc").status) << testing::PrintToString(request);
    }
    const char* const given = std::getenv("KT_SEED");
    const unsigned seed = given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                                           : std::random_device()();
    std::mt19937 dice(seed);
    const int count = scaled(2000);
    for (int i = 0; i < count && !HasFailure(); ++i) {
        expectAnswerOrClose(port, mutation(requests, dice));
    }
    EXPECT_FALSE(HasFailure()) << "KT_SEED=" << seed;
    EXPECT_EQ(200, get(port, "/sum/abc").status);
    program->tell(SIGTERM);
    expectEnd(0);
}

}  // namespace
