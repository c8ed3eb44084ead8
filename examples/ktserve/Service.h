/// What is served.
#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include <prometheus/registry.h>

#include <ktasync/KTPoolMetrics.h>

#include "HttpServer.h"
#include "Options.h"
#include "Root.h"
#include "Tracer.h"

/// | request         | response                                                             |
/// |-----------------|----------------------------------------------------------------------|
/// | GET /sum/PATH   | the SHA-256 of a file below the root                                 |
/// | GET /sleep/MS   | nothing, after as many milliseconds: stands for a slow upstream      |
/// | GET /healthz    | 200: the process lives                                               |
/// | GET /readyz     | 200, or 503 when it is about to end: requests had better go elsewhere |
/// | GET /metrics    | for Prometheus                                                       |
/// | GET /status     | the pool's figures as JSON                                           |
/// | POST /trace     | what the pool does in the next ?seconds=N, as a timeline             |
///
/// The last five are on the admin port, too. One thread makes it and ends it.
class Service {
public:
    /// Starts it. Throws std::system_error if the root can't be opened, std::runtime_error if it
    /// can't listen.
    explicit Service(const Options& options);

    int port() const { return itsPort; }
    std::optional<int> adminPort() const { return itsAdminPort; }

    /// From now on it isn't ready, and a timeline that is recorded ends. Doesn't block.
    void drain();

    /// Accepts no more; finishes what was accepted, as the options say, and only then stops to
    /// answer on the admin port. Blocks for that.
    ///
    /// \return  whether all was finished; if not, it must not be destroyed
    bool finish();

private:
    using Request = httplib::Request;
    using Response = httplib::Response;

    void answer(const Request& request, Response& response, const KT::KTStopToken& stop);
    void answerAdmin(const Request& request, Response& response);
    void writeStatus(Response& response) const;

    const Options options;
    const Root root;
    std::atomic<bool> isDraining{false};
    const std::shared_ptr<prometheus::Registry> registry;
    HttpServer server;
    Tracer tracer;
    HttpServer admin;
    const KT::KTPoolMetrics metrics;
    int itsPort = 0;
    std::optional<int> itsAdminPort;
};
