#include "Finding.h"

#include <chrono>
#include <mutex>
#include <thread>

#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

bool soon(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (int look = 0; !condition(); ++look) {
        if (look < 20) {
            std::this_thread::yield();
            continue;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
    }
    return true;
}

void silenceLog()
{
    static std::once_flag once;
    std::call_once(once, [] { spdlog::null_logger_mt("KTThread"); });
}
