#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <spdlog/spdlog.h>

#include <ro/log.h>

#include "Capture.h"

namespace {

using testing::HasSubstr;

std::string captureStderr(const std::function<void()>& body)
{
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
}

TEST(Log, StreamMakesOneRecordWhenItEnds)
{
    const LogCapture capture("orders");
    {
        ro::log::LogStream stream(3, "orders", "orders.cpp", "place", 12);
        stream << "order " << 42 << std::endl;
        EXPECT_TRUE(capture.records().empty());
    }
    ASSERT_EQ(capture.records().size(), 1U);
    const LogRecord record = capture.records().front();
    EXPECT_EQ(record.text, "order 42");
    EXPECT_EQ(record.file, "orders.cpp");
    EXPECT_EQ(record.function, "place");
    EXPECT_EQ(record.line, 12);
    EXPECT_EQ(record.level, spdlog::level::err);
}

TEST(Log, LevelsFollowSyslog)
{
    const LogCapture capture("levels");
    for (int level = -1; level <= 9; ++level) {
        ro::log::log(level, "levels", "", "", 0, "x");
    }
    std::vector<int> seen;
    for (const LogRecord& record : capture.records()) {
        seen.push_back(record.level);
    }
    using namespace spdlog::level;
    EXPECT_THAT(seen, testing::ElementsAre(critical, critical, critical, critical, err, warn, info,
                                           info, debug, trace, trace));
}

TEST(Log, DefaultSinkIsStandardErrorAndCanBeFormattedBySpdlog)
{
    spdlog::drop("plain");
    EXPECT_THAT(captureStderr([] { ro::log::log(2, "plain", "", "", 0, "to stderr\n"); }),
                HasSubstr("to stderr\n"));
    spdlog::get("plain")->set_pattern("<%n|%l> %v");
    EXPECT_EQ(captureStderr([] { ro::log::log(2, "plain", "", "", 0, "100% {}\n"); }),
              "<plain|critical> 100% {}\n");
    spdlog::get("plain")->set_level(spdlog::level::off);
    EXPECT_EQ(captureStderr([] { ro::log::log(2, "plain", "", "", 0, "filtered"); }), "");
}

TEST(Log, RecordIsOneLineWhateverItsText)
{
    const LogCapture capture("lines");
    ro::log::log(2, "lines", "", "", 0, "two\nlines\r\n\n");
    EXPECT_EQ(capture.records().at(0).text, "two\\nlines\\r\\n");
}

TEST(Log, RecordsOfManyThreadsAreWholeLines)
{
    spdlog::drop("many");
    const std::string written = captureStderr([] {
        ro::log::log(2, "many", "", "", 0, "first");
        spdlog::get("many")->set_pattern("%v");
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([] {
                for (int n = 0; n < 200; ++n) {
                    ro::log::LogStream(2, "many", "", "", 0) << "abcdefghij" << std::endl;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    std::size_t lines = 0;
    std::size_t start = written.find('\n') + 1;
    for (std::size_t end; (end = written.find('\n', start)) != std::string::npos; start = end + 1) {
        EXPECT_EQ(written.substr(start, end - start), "abcdefghij");
        ++lines;
    }
    EXPECT_EQ(lines, 800U);
}

/// A thread that logs while the process exits, until the process is gone.
void logThroughExit()
{
    std::atomic<bool> logged(false);
    std::thread([&logged] {
        for (;;) {
            ro::log::log(2, "exiting", "", "", 0, "still here");
            logged = true;
        }
    }).detach();
    while (!logged) {
    }
    std::exit(0);
}

TEST(LogAtExit, OutlivesStaticDestruction)
{
    EXPECT_EXIT(logThroughExit(), testing::ExitedWithCode(0), "still here");
}

TEST(LogAtExit, FirstRecordMayComeWhenSpdlogIsGone)
{
    const auto body = [] {
        static const struct Last {
            ~Last() { ro::log::log(2, "last", "", "", 0, "the very first record"); }
        } last;
        spdlog::info("a client's own use of spdlog");
        std::exit(0);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "the very first record");
}

TEST(LogAtExit, NewCategoryStillReachesStandardError)
{
    const auto body = [] {
        // Made before the log's own state, so destroyed after it.
        static const struct Late {
            ~Late() { ro::log::log(2, "late", "", "", 0, "from a destructor"); }
        } late;
        ro::log::log(2, "early", "", "", 0, "first");
        std::exit(0);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "from a destructor");
}

}  // namespace
