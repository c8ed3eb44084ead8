// A client of libktasync that has spdlog from its headers alone, for itself.
#include <memory>

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <ktasync/ktasync.h>

int main()
{
    spdlog::logger log("client", std::make_shared<spdlog::sinks::stdout_sink_mt>());
    log.set_pattern("%v");
    KT::KTScopedPool pool;
    log.info("{}", KT::submit(pool, "answer", [] { return 42; }).get());
}
