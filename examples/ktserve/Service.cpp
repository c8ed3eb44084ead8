#include "Service.h"

#include <algorithm>
#include <string_view>

#include <prometheus/text_serializer.h>
#include <nlohmann/json.hpp>

#include "HttpError.h"
#include "Log.h"
#include "Sum.h"
#include "Target.h"

namespace {

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

KT::KTPoolOptions adminPool(const Options& options)
{
    KT::KTPoolOptions pool;
    pool.threads = 1;
    pool.maxThreads = 3;  // one of them may record a timeline
    pool.maxQueued = 16;
    // A timeline is sent at the end.
    pool.finishTimeoutMs = options.limits.clientTimeoutMs + 1000;
    return pool;
}

void requireMethod(const httplib::Request& request, httplib::Response& response, bool isPost)
{
    if (isPost ? request.method != "POST" : request.method != "GET" && request.method != "HEAD") {
        response.set_header("Allow", isPost ? "POST" : "GET, HEAD");
        throw HttpError(405, isPost ? "there is only POST" : "there is only GET and HEAD");
    }
}

void sleepFor(int milliseconds, const KT::KTStopToken& stop)
{
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
      tracer(server.pool()),
      admin(given.limits, adminPool(given),
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

void Service::drain()
{
    isDraining = true;
    tracer.end();
}

bool Service::finish()
{
    const bool all = server.stopped();
    return admin.stopped() && all;
}

void Service::answer(const Request& request, Response& response, const KT::KTStopToken& stop)
{
    std::string_view path = pathIn(request.target);
    if (consume(path, "/sum/")) {
        requireMethod(request, response, false);
        const Descriptor file = root.open(pathOf(path));
        response.set_content(sha256Of(file.get(), stop) + "\n", "text/plain");
    } else if (consume(path, "/sleep/")) {
        requireMethod(request, response, false);
        sleepFor(millisecondsIn(path), stop);
        response.set_content("slept\n", "text/plain");
    } else {
        answerAdmin(request, response);
    }
}

void Service::answerAdmin(const Request& request, Response& response)
{
    const std::string_view path = pathIn(request.target);
    requireMethod(request, response, path == "/trace");
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
    } else if (path == "/trace") {
        const std::chrono::seconds time(secondsIn(request.target));
        response.set_content(tracer.record(time), "application/json");
        response.set_header("Content-Disposition", "attachment; filename=\"ktserve-trace.json\"");
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
