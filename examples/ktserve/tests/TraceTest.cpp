/// Timelines of the pool.
#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <thread>

#include "Fixture.h"

namespace {

class Trace : public KtserveTest {
protected:
    /// Asks for a timeline of a minute, and waits until it is being recorded.
    std::unique_ptr<Client> beginTrace(int atPort) const
    {
        auto client = std::make_unique<Client>(atPort);
        client->send(requestOf("/trace?seconds=60", "", "POST"));
        EXPECT_TRUE(until([&] { return hasThread("KTTrace"); }));
        return client;
    }
};

/// How many slices have the name.
int slicesOf(const std::string& json, const std::string& name)
{
    int count = 0;
    for (const auto& event : nlohmann::json::parse(json)) {
        count += event["ph"] == "X" && event["name"] == name ? 1 : 0;
    }
    return count;
}

void expectTimeline(const Reply& reply)
{
    EXPECT_EQ(200, reply.status) << reply.body;
    EXPECT_NE(std::string::npos, reply.head.find("Content-Type: application/json\r\n"));
    EXPECT_NE(std::string::npos, reply.head.find("Content-Disposition: attachment; filename="));
    EXPECT_TRUE(reply.isWhole);
}

TEST_F(Trace, TellsWhatThePoolDidMeanwhile)
{
    start();
    for (const int atPort : {port, adminPort}) {
        std::atomic<bool> isDone(false);
        std::atomic<int> requests(0);
        std::thread busy([&] {
            while (!isDone) {
                requests += get(port, "/sum/abc").status == 200 ? 1 : 0;
            }
        });
        const Reply reply = post(atPort, "/trace?seconds=1");
        isDone = true;
        busy.join();
        expectTimeline(reply);
        EXPECT_GT(slicesOf(reply.body, "http"), 0);
        EXPECT_LE(slicesOf(reply.body, "http"), requests);
    }
}

TEST_F(Trace, IsRefusedForAnythingButAFewSeconds)
{
    start();
    for (const char* path :
         {"/trace", "/trace?", "/trace?seconds=", "/trace?seconds=0", "/trace?seconds=61",
          "/trace?seconds=-1", "/trace?seconds=1.5", "/trace?seconds=99999999999999999999",
          "/trace?seconds=1&seconds=2", "/trace?seconds=1&x", "/trace?minutes=1"}) {
        EXPECT_EQ(400, post(port, path).status) << path;
        EXPECT_EQ(400, post(adminPort, path).status) << path;
    }
}

TEST_F(Trace, IsPostedAndNothingElseIs)
{
    start();
    const Reply got = get(port, "/trace?seconds=1");
    EXPECT_EQ(405, got.status);
    EXPECT_NE(std::string::npos, got.head.find("Allow: POST\r\n")) << got.head;
    for (const char* path : {"/sum/abc", "/sleep/1", "/healthz", "/metrics", "/trace/x"}) {
        EXPECT_EQ(405, post(port, path).status) << path;
    }
    const Client withBody(port);
    withBody.send(requestOf("/trace?seconds=1", "Content-Length: 2\r\n", "POST") + "{}");
    EXPECT_EQ(413, withBody.reply().status);
}

TEST_F(Trace, IsTheOnlyOne)
{
    start();
    const auto first = beginTrace(adminPort);
    for (const int atPort : {port, adminPort}) {
        const Reply second = post(atPort, "/trace?seconds=1");
        EXPECT_EQ(503, second.status);
        EXPECT_NE(std::string::npos, second.head.find("Retry-After: ")) << second.head;
    }
    EXPECT_EQ(200, get(adminPort, "/healthz").status);
    program->tell(SIGTERM);
    expectTimeline(first->reply());
}

TEST_F(Trace, EndsWithTheService)
{
    for (const bool isAdmin : {false, true}) {
        start();
        const auto tracing = beginTrace(isAdmin ? adminPort : port);
        ASSERT_EQ(200, get(port, "/sum/abc").status);
        ASSERT_TRUE(untilPoolHas(isAdmin ? 0 : 1, 0));
        program->tell(SIGTERM);
        const Reply reply = tracing->reply();
        expectTimeline(reply);
        EXPECT_GE(slicesOf(reply.body, "http"), 1);
        expectEnd(0);
    }
}

TEST_F(Trace, IsRefusedWhileTheServiceDrains)
{
    start({"--drain-ms", "600000"});
    program->tell(SIGTERM);
    ASSERT_TRUE(until([&] { return get(port, "/readyz").status == 503; }));
    EXPECT_EQ(503, post(port, "/trace?seconds=60").status);
}

TEST_F(Trace, NeedsAFolder)
{
    start({}, {{"TMPDIR", files.root() + "/none"}});
    const Reply reply = post(port, "/trace?seconds=60");
    EXPECT_EQ(500, reply.status);
    EXPECT_NE(std::string::npos, reply.body.find("there can be no temporary file: ")) << reply.body;
}

/// The rest of a disk, in bytes.
class TraceOnAFullDisk : public Trace, public testing::WithParamInterface<rlim_t> {};

TEST_P(TraceOnAFullDisk, IsRefusedAndNothingElse)
{
    start();
    program->limit(RLIMIT_FSIZE, GetParam());
    const Reply reply = post(adminPort, "/trace?seconds=60");
    EXPECT_EQ(507, reply.status);
    EXPECT_NE(std::string::npos, reply.body.find("can't be written")) << reply.body;
    EXPECT_EQ(200, get(port, "/sum/abc").status);

    program->limit(RLIMIT_FSIZE, RLIM_INFINITY);
    expectTimeline(post(adminPort, "/trace?seconds=1"));
    program->tell(SIGTERM);
    expectEnd(0);
}

INSTANTIATE_TEST_SUITE_P(Rests, TraceOnAFullDisk, testing::Values(0, 4, 100));

}  // namespace
