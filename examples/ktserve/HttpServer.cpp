#include "HttpServer.h"

#include <exception>
#include <new>
#include <string>
#include <utility>

#include <ktasync/post.h>

#include "Connection.h"
#include "HttpError.h"

namespace {

const char* const requestId = "X-Request-Id";

/// The stop token of the task that this thread runs a connection in.
thread_local const KT::KTStopToken* currentStop = nullptr;

/// For a scope.
class WithStop {
public:
    explicit WithStop(const KT::KTStopToken* stop) : previous(std::exchange(currentStop, stop)) {}
    ~WithStop() { currentStop = previous; }
    WithStop(const WithStop&) = delete;
    WithStop& operator=(const WithStop&) = delete;

private:
    const KT::KTStopToken* previous;
};

KT::KTPoolOptions refusing(KT::KTPoolOptions options)
{
    options.whenFull = KT::KTPoolOptions::WhenFull::refuse;
    return options;
}

bool hasBody(const httplib::Request& request)
{
    return request.has_header("Transfer-Encoding") ||
           request.get_header_value("Content-Length", 0) > "0";
}

/// Lets a client, and what is between it and here, tell which answer belongs to which request.
void returnId(const httplib::Request& request, httplib::Response& response)
{
    if (request.has_header(requestId)) {
        response.set_header(requestId, request.get_header_value(requestId));
    }
}

}  // namespace

/// A connection on its way through the pool. If the pool refuses or drops it, it is answered so.
class HttpServer::Ticket {
public:
    Ticket(HttpServer& ofServer, Descriptor accepted)
        : server(ofServer), connection(std::move(accepted))
    {
    }
    Ticket(Ticket&& other) noexcept = default;
    ~Ticket()
    {
        if (connection.get() < 0) {
            return;
        }
        try {
            server.refuse(std::move(connection));
        } catch (const std::bad_alloc&) {
            // Closed without a word.
        }
    }

    void operator()(const KT::KTStopToken& stop) { server.serve(std::move(connection), stop); }

private:
    HttpServer& server;
    Descriptor connection;
};

HttpServer::HttpServer(const Limits& within, KT::KTPoolOptions options, Handler toAnswer)
    : limits(within), handler(std::move(toAnswer)), workers(refusing(options))
{
    set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        return answer(request, response);
    });
    set_expect_100_continue_handler(
        [](const httplib::Request&, httplib::Response& response) { return response.status = 413; });
}

HttpServer::~HttpServer()
{
    stopped();
}

int HttpServer::start(const std::string& host, int port)
{
    listener.emplace(host, port);
    const int bound = listener->port();
    acceptor = std::thread([this] {
        listener->run([this](Descriptor connection) { enqueue(std::move(connection)); });
    });
    return bound;
}

bool HttpServer::stopped()
{
    if (acceptor.joinable()) {
        listener->stop();
        acceptor.join();
        hasAcceptedAll = true;
        workersEnded = workers.close();
        lingering.finish();
    }
    return workersEnded && unanswered == 0;
}

void HttpServer::enqueue(Descriptor connection)
{
    try {
        KT::post(workers, "http", Ticket(*this, std::move(connection)));
    } catch (const std::bad_alloc&) {
        // The ticket has refused it.
    }
}

void HttpServer::refuse(Descriptor connection)
{
    unanswered += hasAcceptedAll ? 1 : 0;
    sendRefusal(connection.get(), 503, limits.retryAfterS);
    lingering.close(std::move(connection));
}

void HttpServer::serve(Descriptor socket, const KT::KTStopToken& stop)
{
    const WithStop its(&stop);
    Connection connection(std::move(socket), limits);
    bool allRead = false;
    const int refused = connection.readHead();
    if (refused < 0) {
        return;
    }
    if (refused > 0) {
        sendRefusal(connection.socket(), refused);
    } else {
        bool closed = false;
        process_request(connection, true, closed, [&](httplib::Request& request) {
            allRead = !hasBody(request);
            // cpp-httplib sends as many copies of the response as a request names ranges.
            request.ranges.clear();
        });
    }
    unanswered += stop.stopRequested() ? 1 : 0;
    if (!allRead) {
        lingering.close(connection.release());
    }
}

httplib::Server::HandlerResponse HttpServer::answer(const httplib::Request& request,
                                                    httplib::Response& response) const
{
    try {
        returnId(request, response);
        if (hasBody(request)) {
            throw HttpError(413, "a request has no body here");
        }
        handler(request, response, *currentStop);
    } catch (const HttpError& error) {
        response.status = error.status();
        response.set_content(std::string(error.what()) + "\n", "text/plain");
    } catch (const std::exception&) {
        response.status = 500;
        response.set_content("internal error\n", "text/plain");
    }
    if (response.status == 503) {
        response.set_header("Retry-After", std::to_string(limits.retryAfterS));
    }
    return HandlerResponse::Handled;
}
