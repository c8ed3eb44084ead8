/// A server whose connections are tasks of a pool.
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include <httplib.h>

#include <ktasync/KTScopedPool.h>
#include <ktasync/KTStopToken.h>

#include "Descriptor.h"
#include "Listener.h"
#include "Options.h"
#include "Refusal.h"

/// Serves HTTP/1.1 by cpp-httplib: requests without bodies, one a connection, so that each task is
/// one request and no worker waits for a client without any. A connection for which the pool has no
/// room gets a 503 at once, from the thread that accepts. An X-Request-Id comes back with the
/// answer. It is made and stopped by one thread.
///
/// It accepts by itself: cpp-httplib's own loop ends for good at the first error of accept that it
/// doesn't know, and resets the connections that wait when it is stopped.
///
/// Made for cpp-httplib 0.11, Debian 12's: newer ones give process_request other parameters.
class HttpServer : private httplib::Server {
public:
    /// Fills in the response to a request. Many threads call it at once. `stop` is raised when the
    /// server ends and its time is over. What it throws becomes the response: an HttpError its
    /// status, anything else 500.
    using Handler = std::function<void(const httplib::Request& request, httplib::Response& response,
                                       const KT::KTStopToken& stop)>;

    /// \param within    copied
    /// \param options   of the pool; what waits for room is refused, whatever they say
    /// \param toAnswer  copied
    HttpServer(const Limits& within, KT::KTPoolOptions options, Handler toAnswer);

    /// Stops it.
    ~HttpServer() override;

    /// Begins to accept connections, in a thread of its own. Once. Throws std::runtime_error if it
    /// can't listen there.
    ///
    /// \param host  numeric
    /// \param port  0: one that is free
    /// \return      the port
    int start(const std::string& host, int port);

    /// Accepts what clients have connected by now and no more, and closes the pool, as its options
    /// say. Blocks for that.
    ///
    /// \return  whether all that was accepted has been answered; if not, threads may still be busy
    ///          with it, and this object must not be destroyed
    bool stopped();

    const KT::KTScopedPool& pool() const { return workers; }

    /// Calls this after each response that is sent, on many threads at once; not after a refusal.
    /// Before the start.
    using httplib::Server::set_logger;

private:
    class Ticket;

    void enqueue(Descriptor connection);
    void refuse(Descriptor connection);
    void serve(Descriptor socket, const KT::KTStopToken& stop);
    HandlerResponse answer(const httplib::Request& request, httplib::Response& response) const;

    const Limits limits;
    const Handler handler;
    std::atomic<bool> hasAcceptedAll{false};
    std::atomic<int> unanswered{0};  ///< when the time was over; not those without room
    bool workersEnded = true;
    LingeringClose lingering;
    KT::KTScopedPool workers;
    std::optional<Listener> listener;
    std::thread acceptor;
};
