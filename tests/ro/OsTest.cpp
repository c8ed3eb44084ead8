#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <thread>

#include <pthread.h>

#include <gtest/gtest.h>

#include <ro/os.h>

namespace {

TEST(Os, TimeOfDayIsTheWallClock)
{
    const std::time_t before = std::time(nullptr);
    const ro::os::timeval now = ro::os::gettimeofday();
    const std::time_t after = std::time(nullptr);
    EXPECT_GE(now.tv_sec, before);
    EXPECT_LE(now.tv_sec, after + 1);  // time() may be one tick of the system behind
    EXPECT_GE(now.tv_usec, 0);
    EXPECT_LE(now.tv_usec, 999999);
    EXPECT_EQ(sizeof now, 8U);
}

TEST(Os, SleepLastsItsWholeTimeDespiteSignals)
{
    std::signal(SIGUSR1, [](int) {});
    const pthread_t sleeper = pthread_self();
    std::atomic<bool> awake(false);
    std::thread disturber([&] {
        while (!awake) {
            pthread_kill(sleeper, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    const auto start = std::chrono::steady_clock::now();
    ro::os::msleep(60);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
    awake = true;
    disturber.join();
    ro::os::msleep(0);
    ro::os::msleep(-1);
}

}  // namespace
