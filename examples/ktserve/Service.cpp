#include "Service.h"

#include <charconv>
#include <string_view>

#include <prometheus/text_serializer.h>
#include <nlohmann/json.hpp>

#include "HttpError.h"
#include "Log.h"
#include "Sum.h"

namespace {

const int longestSleepMs = 60000;

KT::KTPoolOptions poolOf(const Options& options)
{
    KT::KTPoolOptions pool;
    pool.maxThreads = options.maxThreads;
    pool.threads = std::min(KT::availableProcessors(), options.maxThreads);
    pool.maxQueued = options.maxQueued;
    pool.finishTimeoutMs = options.graceMs;
    pool.stopTimeoutMs = options.limits.clientTimeoutMs + 1000;
    // Not `force`: cpp-httplib catches whatever leaves a handler.
    pool.stuck = KT::KTPoolOptions::Stuck::leave;
    return pool;
}

KT::KTPoolOptions adminPool()
{
    KT::KTPoolOptions pool;
    pool.threads = 1;
    pool.maxThreads = 2;
    pool.maxQueued = 16;
    pool.finishTimeoutMs = 1000;
    return pool;
}

/// Its target without a query.
std::string_view pathIn(const httplib::Request& request)
{
    const std::string_view target = request.target;
    return target.substr(0, target.find_first_of("?#"));
}

/// Whether `path` begins with `prefix`, which is removed then.
bool consume(std::string_view& path, std::string_view prefix)
{
    if (path.substr(0, prefix.size()) != prefix) {
        return false;
    }
    path.remove_prefix(prefix.size());
    return true;
}

void sleepFor(std::string_view text, const KT::KTStopToken& stop)
{
    int milliseconds = -1;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), milliseconds);
    if (error != std::errc() || end != text.end() || milliseconds < 0 ||
        milliseconds > longestSleepMs) {
        throw HttpError(400, "milliseconds must be 0 to " + std::to_string(longestSleepMs));
    }
    if (stop.waitFor(milliseconds)) {
        throw HttpError(503, "the service ends");
    }
}

void logResponse(const httplib::Request& request, const httplib::Response& response)
{
    logInfo(request.remote_addr + " " + request.method + " " + request.target + " " +
            std::to_string(response.status));
}

}  // namespace

Service::Service(const Options& given)
    : options(given),
      root(given.root),
      registry(std::make_shared<prometheus::Registry>()),
      server(given.limits, poolOf(given),
             [this](const Request& request, Response& response, const KT::KTStopToken& stop) {
                 answer(request, response, stop);
             }),
      admin(given.limits, adminPool(),
            [this](const Request& request, Response& response, const KT::KTStopToken&) {
                answerAdmin(request, response);
            }),
      metrics(server.pool(), registry, "http")
{
    if (!options.quiet) {
        server.set_logger(logResponse);
        admin.set_logger(logResponse);
    }
    if (options.adminPort) {
        itsAdminPort = admin.start(options.host, *options.adminPort);
    }
    itsPort = server.start(options.host, options.port);
}

bool Service::finish()
{
    const bool all = server.stopped();
    return admin.stopped() && all;
}

void Service::answer(const Request& request, Response& response, const KT::KTStopToken& stop) const
{
    std::string_view path = pathIn(request);
    if (consume(path, "/sum/")) {
        const Descriptor file = root.open(pathOf(path));
        response.set_content(sha256Of(file.get(), stop) + "\n", "text/plain");
    } else if (consume(path, "/sleep/")) {
        sleepFor(path, stop);
        response.set_content("slept\n", "text/plain");
    } else {
        answerAdmin(request, response);
    }
}

void Service::answerAdmin(const Request& request, Response& response) const
{
    const std::string_view path = pathIn(request);
    if (path == "/healthz") {
        response.set_content("alive\n", "text/plain");
    } else if (path == "/readyz") {
        if (isDraining) {
            throw HttpError(503, "about to end");
        }
        response.set_content("ready\n", "text/plain");
    } else if (path == "/metrics") {
        const prometheus::TextSerializer serializer;
        response.set_content(serializer.Serialize(registry->Collect()),
                             "text/plain; version=0.0.4; charset=utf-8");
    } else if (path == "/status") {
        writeStatus(response);
    } else {
        throw HttpError(404, "there is no such resource");
    }
}

void Service::writeStatus(Response& response) const
{
    const KT::KTThreadPoolStatus now = server.pool().status();
    const nlohmann::json status = {
        {"threads", now.threads},         {"busyThreads", now.busyThreads},
        {"maxThreads", now.maxThreads},   {"queuedTasks", now.queuedTasks},
        {"maxQueued", options.maxQueued}, {"draining", isDraining.load()},
    };
    response.set_content(status.dump() + "\n", "application/json");
}
