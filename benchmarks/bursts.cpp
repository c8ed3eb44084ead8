// bursts PERIOD TRACE: three bursts of tasks that block, on a pool that starts with two workers and
// whose monitor looks each time that PERIOD tasks have ended; what happens is recorded in TRACE.
// For docs/pictures/make.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <ktasync/ktasync.h>

namespace {

const int bursts = 3;
const int tasksOfABurst = 150;
const std::chrono::milliseconds quiet(400);
const std::chrono::milliseconds blocking(20);

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "bursts: give the monitor's period and a file\n");
        return 2;
    }
    KT::KTPoolOptions options;
    options.threads = 2;
    options.maxThreads = 64;
    options.monitorPeriod = std::atoi(argv[1]);
    KT::KTScopedPool pool(options);
    const KT::KTTraceRecorder trace(pool, argv[2], 1);
    for (int burst = 0; burst < bursts; ++burst) {
        KT::KTTaskGroup group(pool);
        for (int task = 0; task < tasksOfABurst; ++task) {
            group.run("block", [] { std::this_thread::sleep_for(blocking); });
        }
        group.wait();
        std::this_thread::sleep_for(quiet);
    }
}
