/// Runs the tests of a program, each under a watchdog: one that hangs is named and ends the
/// program.
#include <csignal>
#include <cstring>

#include <unistd.h>

#include <gtest/gtest.h>

#include "Scaled.h"

namespace {

const int watchdogSeconds = 120;

char runningTest[256];

void bark(int)
{
    const char* const parts[] = {"watchdog: this test hangs: ", runningTest, "\n"};
    for (const char* part : parts) {
        if (write(STDERR_FILENO, part, std::strlen(part)) < 0) {
            break;
        }
    }
    std::signal(SIGABRT, SIG_DFL);
    abort();
}

class Watchdog : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& test) override
    {
        std::snprintf(runningTest, sizeof runningTest, "%s.%s", test.test_suite_name(),
                      test.name());
        alarm(static_cast<unsigned>(scaled(watchdogSeconds)));
    }
    void OnTestEnd(const testing::TestInfo&) override { alarm(0); }
};

}  // namespace

int main(int argc, char** argv)
{
    // Unless the command line says otherwise.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    testing::InitGoogleTest(&argc, argv);
    std::signal(SIGALRM, bark);
    testing::UnitTest::GetInstance()->listeners().Append(new Watchdog);
    return RUN_ALL_TESTS();
}
