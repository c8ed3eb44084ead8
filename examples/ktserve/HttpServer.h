/// A server whose connections are tasks of a pool.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include <httplib.h>

#include <ktasync/KTScopedPool.h>
#include <ktasync/KTStopToken.h>

#include "Options.h"
#include "Refusal.h"

/// Serves HTTP/1.1 by cpp-httplib: GET and HEAD, without bodies, and one request a connection, so
/// that each task is one request and no worker waits for a client without any. A connection for
/// which the pool has no room gets a 503 at once, from the thread that accepts. It is made and
/// stopped by one thread.
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

    /// Accepts no more, and closes the pool, as its options say. Blocks for that.
    ///
    /// \return  whether all that was accepted has been answered; if not, threads may still be busy
    ///          with it, and this object must not be destroyed
    bool stopped();

    const KT::KTScopedPool& pool() const { return workers; }

    /// Calls this after each response that is sent, on many threads at once; not after a refusal.
    /// Before the start.
    using httplib::Server::set_logger;

private:
    class Queue;
    class Ticket;

    // Of httplib::Server.
    bool process_and_close_socket(socket_t socket) override;

    void serve(Descriptor socket, const KT::KTStopToken& stop);
    HandlerResponse answer(const httplib::Request& request, httplib::Response& response) const;

    const Limits limits;
    const Handler handler;
    std::atomic<bool> isStopping{false};
    std::atomic<int> unanswered{0};  ///< of those that had been accepted when it was stopped
    bool workersEnded = true;
    LingeringClose lingering;
    KT::KTScopedPool workers;
    std::thread listener;
};
