/// What is answered to single requests.
#include <csignal>
#include <string>
#include <vector>

#include "Fixture.h"

namespace {

const char* const sumOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n";

class Request : public KtserveTest {
protected:
    void SetUp() override { start({"--client-timeout-ms", "200"}); }
};

struct Case {
    const char* name;
    std::string path;
    int status;
};

void PrintTo(const Case& of, std::ostream* out)
{
    *out << of.name;
}

class RequestOf : public Request, public testing::WithParamInterface<Case> {};

TEST_P(RequestOf, GetsTheStatus)
{
    const Reply reply = get(port, GetParam().path);
    EXPECT_EQ(GetParam().status, reply.status) << reply.body;
    EXPECT_EQ(std::string::npos, reply.body.find("secret"));
    EXPECT_EQ(200, get(port, "/healthz").status);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, RequestOf,
    testing::Values(
        Case{"File", "/sum/abc", 200}, Case{"EscapedSpace", "/sum/folder/a%20b", 200},
        Case{"Query", "/sum/abc?x=/../y", 200}, Case{"NoFile", "/sum/none", 404},
        Case{"BelowAFile", "/sum/abc/def", 404}, Case{"Empty", "/sum/", 400},
        Case{"Up", "/sum/../secret", 400}, Case{"UpFromBelow", "/sum/folder/../../secret", 400},
        Case{"UpWithinRoot", "/sum/folder/../abc", 400},
        Case{"EncodedUp", "/sum/%2e%2E/secret", 400}, Case{"Dot", "/sum/./abc", 400},
        Case{"Absolute", "/sum//etc/passwd", 400}, Case{"EncodedSlash", "/sum/folder%2fa%20b", 400},
        Case{"EncodedSlashUp", "/sum/..%2Fsecret", 400},
        Case{"EncodedAbsolute", "/sum/%2Fetc%2Fpasswd", 400},
        Case{"EncodedNul", "/sum/abc%00", 400}, Case{"EncodedNulWithin", "/sum/abc%00/../x", 400},
        Case{"HalfAnEscape", "/sum/abc%2", 400}, Case{"NoEscape", "/sum/%zz", 400},
        Case{"TwiceEncodedUp", "/sum/%252e%252e/secret", 404}, Case{"LinkOut", "/sum/out", 403},
        Case{"LinkUp", "/sum/up/secret", 403}, Case{"LinkWithin", "/sum/link", 403},
        Case{"LinkedFolder", "/sum/linked/a%20b", 403}, Case{"Folder", "/sum/folder", 403},
        Case{"Pipe", "/sum/pipe", 403}, Case{"LongName", "/sum/" + std::string(300, 'x'), 400},
        Case{"LongPath", "/sum/" + std::string(7000, 'x'), 400}, Case{"Sleep", "/sleep/1", 200},
        Case{"SleepTooLong", "/sleep/60001", 400}, Case{"SleepNegative", "/sleep/-1", 400},
        Case{"SleepNoNumber", "/sleep/", 400},
        Case{"SleepHuge", "/sleep/99999999999999999999", 400}, Case{"Health", "/healthz", 200},
        Case{"Ready", "/readyz", 200}, Case{"Metrics", "/metrics", 200},
        Case{"Status", "/status", 200}, Case{"Other", "/", 404},
        Case{"OtherBelow", "/healthz/x", 404}),
    [](const auto& test) { return test.param.name; });

TEST_F(Request, ForAFileGetsItsSum)
{
    EXPECT_EQ(sumOfAbc, get(port, "/sum/abc").body);
    EXPECT_EQ(sumOfAbc, get(port, "/sum/folder/a%20b").body);
}

TEST_F(Request, WithANulIsRefused)
{
    EXPECT_EQ(400, get(port, std::string("/sum/abc\0def", 12)).status);
}

TEST_F(Request, WithALongHeadIsRefused)
{
    EXPECT_EQ(431, get(port, "/healthz", "X: " + std::string(9000, 'x') + "\r\n").status);
    std::string many;
    for (int i = 0; i < 2000; ++i) {
        many += "A: b\r\n";
    }
    EXPECT_EQ(431, get(port, "/healthz", many).status);
}

TEST_F(Request, WithABodyIsRefused)
{
    EXPECT_EQ(413, get(port, "/healthz", "Content-Length: 5\r\n").status);
    EXPECT_EQ(413, get(port, "/healthz", "Content-Length: 99999999999999999999\r\n").status);
    EXPECT_EQ(413, get(port, "/healthz", "Transfer-Encoding: chunked\r\n").status);
    EXPECT_EQ(413, get(port, "/healthz", "Content-Length: 5\r\nExpect: 100-continue\r\n").status);
}

TEST_F(Request, WithABodyThatIsSentGetsTheAnswerAllTheSame)
{
    const Client client(port);
    client.send(requestOf("/healthz", "Content-Length: 100000\r\n") + std::string(100000, 'x'));
    const Reply reply = client.reply();
    EXPECT_EQ(413, reply.status);
    EXPECT_TRUE(reply.isWhole);
}

TEST_F(Request, WithControlCharactersIsRefused)
{
    EXPECT_EQ(400, get(port, "/healthz", "X: \x1b[2J\r\n").status);
    EXPECT_EQ(400, get(port, "/healthz", "X: \x7f\r\n").status);
    EXPECT_EQ(200, get(port, "/healthz", "X:\ta b\r\n").status);
}

TEST_F(Request, WithAnotherMethodIsRefused)
{
    const Client client(port);
    client.send("DELETE /sum/abc HTTP/1.1\r\nHost: localhost\r\n\r\n");
    const Reply reply = client.reply();
    EXPECT_EQ(405, reply.status);
    EXPECT_NE(std::string::npos, reply.head.find("Allow: GET, HEAD\r\n")) << reply.head;
}

TEST_F(Request, ThatIsNoneIsRefused)
{
    const Client client(port);
    client.send("\x16\x03\x01 nonsense\r\n\r\n");
    EXPECT_EQ(400, client.reply().status);
}

TEST_F(Request, WithManyRangesGetsNoMoreThanThereIs)
{
    std::string ranges = "Range: bytes=0-";
    for (int i = 0; i < 1500; ++i) {
        ranges += ",0-";
    }
    const Reply reply = get(port, "/healthz", ranges + "\r\n");
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ("alive\n", reply.body);
}

TEST_F(Request, ThatComesTooSlowlyIsRefused)
{
    const Client client(port);
    client.send("GET /healthz HTTP/1.1\r\n");
    EXPECT_EQ(408, client.reply().status);
}

TEST_F(Request, ThatNeverComesIsNotWaitedFor)
{
    const Client client(port);
    EXPECT_EQ(0, client.reply().status);  // closed without an answer
}

TEST_F(Request, ForMetricsTellsOfThePool)
{
    get(port, "/healthz");
    const std::string metrics = get(adminPort, "/metrics").body;
    for (const char* part : {"ktthread_tasks_total{outcome=\"done\",pool=\"http\"}",
                             "ktthread_task_run_seconds_count{pool=\"http\"}"}) {
        EXPECT_NE(std::string::npos, metrics.find(part)) << metrics;
    }
}

TEST_F(Request, ForStatusTellsOfThePool)
{
    const auto status = nlohmann::json::parse(get(port, "/status").body);
    EXPECT_EQ(64, status["maxThreads"]);
    EXPECT_EQ(256, status["maxQueued"]);
    EXPECT_EQ(false, status["draining"]);
}

TEST_F(Request, OnTheAdminPortIsForAdministrationOnly)
{
    EXPECT_EQ(200, get(adminPort, "/healthz").status);
    EXPECT_EQ(404, get(adminPort, "/sum/abc").status);
    EXPECT_EQ(404, get(adminPort, "/sleep/1").status);
}

TEST_F(Request, FromAnotherAddressReachesNothing)
{
    EXPECT_TRUE(Client(port).isConnected());
    EXPECT_FALSE(Client(port, "127.0.0.2").isConnected());
}

}  // namespace
