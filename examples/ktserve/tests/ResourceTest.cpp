/// No descriptors, no threads, and what a killed process leaves.
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "Fixture.h"

namespace {

class Resource : public KtserveTest {
protected:
    /// So many clients that have asked for the same.
    static std::vector<std::unique_ptr<Client>> askMany(int port, int count,
                                                        const std::string& path)
    {
        std::vector<std::unique_ptr<Client>> clients;
        for (int i = 0; i < count; ++i) {
            clients.push_back(std::make_unique<Client>(port));
            clients.back()->send(requestOf(path));
        }
        return clients;
    }

    static void expectStatus(int status, const std::vector<std::unique_ptr<Client>>& clients)
    {
        for (const auto& client : clients) {
            EXPECT_EQ(status, client->reply().status);
        }
    }
};

TEST_F(Resource, WithoutDescriptorsClientsWait)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "UndefinedBehaviorSanitizer looks at objects through a pipe, and so needs two";
#endif
    start();
    const auto running = askMany(port, 1, "/sleep/60000");
    ASSERT_TRUE(untilPoolHas(1, 0));
    program->limit(RLIMIT_NOFILE, 3);
    const auto waiting = askMany(port, 20, "/sum/abc");
    const auto admins = askMany(adminPort, 3, "/healthz");
    EXPECT_TRUE(until([&] { return program->hasSaid("clients have to wait"); }));
    program->limit(RLIMIT_NOFILE, RLIM_INFINITY);
    expectStatus(200, waiting);
    expectStatus(200, admins);
    EXPECT_EQ(200, get(port, "/sum/abc").status);
}

TEST_F(Resource, WithoutThreadsTheServiceGoesOnWithThoseThatItHas)
{
    const uid_t user = getuid() == 0 ? 61000 + static_cast<uid_t>(getpid() % 4000) : 0;
    if (user != 0) {
        std::filesystem::permissions(files.root() + "/..", std::filesystem::perms(0755));
        std::string above = std::filesystem::path(KTSERVE_PROGRAM).parent_path();
        for (; above.size() > 1; above = std::filesystem::path(above).parent_path()) {
            struct stat status = {};
            if (stat(above.c_str(), &status) != 0 || (status.st_mode & S_IXOTH) == 0) {
                GTEST_SKIP() << "an ordinary user can't start " << KTSERVE_PROGRAM;
            }
        }
    }
    start({}, {}, user);
    program->limit(RLIMIT_NPROC, 1);
    expectStatus(200, askMany(port, 50, "/sleep/20"));
    const Reply trace = post(port, "/trace?seconds=60");
    EXPECT_EQ(503, trace.status);
    EXPECT_NE(std::string::npos, trace.body.find("no thread")) << trace.body;

    program->limit(RLIMIT_NPROC, RLIM_INFINITY);
    const auto slow = askMany(port, 8, "/sleep/60000");
    EXPECT_TRUE(untilPoolHas(8, 0));
}

TEST_F(Resource, APortIsFreeAtOnceWhenItsProcessIsKilled)
{
    start();
    ASSERT_EQ(200, get(port, "/sum/abc").status);
    const auto running = askMany(port, 10, "/sleep/60000");
    ASSERT_TRUE(untilPoolHas(10, 0));
    for (int i = 0; i < 3; ++i) {
        program->tell(SIGKILL);
        EXPECT_EQ(-1, program->end().status);
        program = std::make_unique<Program>(
            std::vector<std::string>{files.root(), "--port", std::to_string(port), "--admin-port",
                                     std::to_string(adminPort), "--quiet"});
        ASSERT_EQ(port, program->nextPort());
        ASSERT_EQ(adminPort, program->nextPort());
        EXPECT_EQ(200, get(port, "/sum/abc").status);
    }
}

}  // namespace
