// What a pool says of itself.
#include <ktthread/KTThreadPool.h>

#include <cstdio>
#include <string>

#include "IgnoreBadAlloc.h"
#include "Output.h"
#include "PoolLoad.h"
#include "PoolSettings.h"
#include "TimeStamps.h"

namespace KT {

std::string KTThreadPool::label() const
{
    return *name() == '\0' ? std::string() : "pool '" + std::string(name()) + "': ";
}

void KTThreadPool::print(const char* line) const
{
    if (settings->messages == Messages::console) {
        core::consoleLine(line);
    }
}

void KTThreadPool::record(int severity, const char* function, const char* line) const
{
    if (settings->messages == Messages::log) {
        core::ignoreBadAlloc(
            [&] { core::logRecord("KTThread", function, label() + line, severity); });
    }
}

// The second number is not the limit, but what a growth would have led to. Out of line, to keep
// the monitor's look at the pool short: each enqueue takes one.
[[gnu::noinline]] void KTThreadPool::tellLimit(int busy, int live) const
{
    char text[64];
    std::snprintf(text, sizeof text, "INFO: Thread limit reached: (%d/%d)", busy,
                  core::wrappingSum(live, core::growthBatch));
    print(text);
    record(core::debug, "adjustPool", text);
}

}  // namespace KT
