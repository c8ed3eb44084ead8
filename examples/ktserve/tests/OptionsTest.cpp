/// Configuration that is wrong, and where it comes from.
#include <csignal>
#include <string>
#include <vector>

#include "Fixture.h"

namespace {

struct Wrong {
    std::string name;
    std::string option;
    std::string variable;
    std::string value;
};

void PrintTo(const Wrong& of, std::ostream* out)
{
    *out << of.option << ' ' << of.value;
}

class WrongOption : public KtserveTest, public testing::WithParamInterface<Wrong> {};

TEST_P(WrongOption, IsRefusedAndNamed)
{
    const Wrong& wrong = GetParam();
    const Ended given = Program({files.root(), wrong.option, wrong.value}).end();
    EXPECT_EQ(2, given.status);
    EXPECT_NE(std::string::npos, given.errors.find(wrong.option)) << given.errors;

    const Ended inherited = Program({files.root()}, {{wrong.variable, wrong.value}}).end();
    EXPECT_EQ(2, inherited.status);
    EXPECT_NE(std::string::npos, inherited.errors.find(wrong.option)) << inherited.errors;
}

INSTANTIATE_TEST_SUITE_P(
    Values, WrongOption,
    testing::Values(Wrong{"PortTooHigh", "--port", "KTSERVE_PORT", "65536"},
                    Wrong{"PortNoNumber", "--port", "KTSERVE_PORT", "http"},
                    Wrong{"PortWithRest", "--port", "KTSERVE_PORT", "80x"},
                    Wrong{"AdminPort", "--admin-port", "KTSERVE_ADMIN_PORT", "-1"},
                    Wrong{"Host", "--host", "KTSERVE_HOST", "nowhere"},
                    Wrong{"NoThreads", "--max-threads", "KTSERVE_MAX_THREADS", "0"},
                    Wrong{"NoQueue", "--max-queued", "KTSERVE_MAX_QUEUED", "0"},
                    Wrong{"RetryAfter", "--retry-after-s", "KTSERVE_RETRY_AFTER_S", "0"},
                    Wrong{"Head", "--max-head-bytes", "KTSERVE_MAX_HEAD_BYTES", "10"},
                    Wrong{"Timeout", "--client-timeout-ms", "KTSERVE_CLIENT_TIMEOUT_MS", "0"},
                    Wrong{"Drain", "--drain-ms", "KTSERVE_DRAIN_MS", "-1"},
                    Wrong{"Grace", "--grace-ms", "KTSERVE_GRACE_MS", "99999999999"}),
    [](const auto& test) { return test.param.name; });

using Configuration = KtserveTest;

TEST_F(Configuration, WithoutARootIsRefused)
{
    EXPECT_EQ(2, Program({}).end().status);
    EXPECT_EQ(2, Program({files.root() + "/none"}).end().status);
    EXPECT_EQ(2, Program({files.root() + "/abc"}).end().status);
}

TEST_F(Configuration, ComesFromTheEnvironment)
{
    Program inherits({}, {{"KTSERVE_ROOT", files.root()}, {"KTSERVE_PORT", "0"}});
    EXPECT_EQ(200, get(inherits.nextPort(), "/sum/abc").status);
}

TEST_F(Configuration, OfAPortThatIsTakenIsRefused)
{
    start();
    const Ended second = Program({files.root(), "--port", std::to_string(port)}).end();
    EXPECT_EQ(1, second.status);
    EXPECT_NE(std::string::npos, second.errors.find("port " + std::to_string(port)))
        << second.errors;
}

TEST_F(Configuration, HasHelp)
{
    EXPECT_EQ(0, Program({"--help"}).end().status);
}

}  // namespace
