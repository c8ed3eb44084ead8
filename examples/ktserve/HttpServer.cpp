#include "HttpServer.h"

#include <exception>
#include <future>
#include <new>
#include <stdexcept>
#include <utility>

#include <sys/socket.h>

#include <ktasync/post.h>

#include "Connection.h"
#include "HttpError.h"

namespace {

/// Connections that the kernel accepts ahead of the server.
const int backlog = 1024;

/// The stop token of the task that this thread runs a connection in. Null: it is to be refused.
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

void requireGet(const httplib::Request& request, httplib::Response& response)
{
    if (request.method != "GET" && request.method != "HEAD") {
        response.set_header("Allow", "GET, HEAD");
        throw HttpError(405, "there is only GET and HEAD");
    }
    if (hasBody(request)) {
        throw HttpError(413, "a request has no body here");
    }
}

}  // namespace

/// A connection on its way through the pool. If the pool refuses or drops it, it is answered so.
class HttpServer::Ticket {
public:
    explicit Ticket(std::function<void()> forConnection) : connection(std::move(forConnection)) {}
    Ticket(Ticket&& other) noexcept : connection(std::exchange(other.connection, nullptr)) {}
    ~Ticket()
    {
        if (connection) {
            const WithStop none(nullptr);
            try {
                connection();
            } catch (const std::bad_alloc&) {
                // Closed without a word.
            }
        }
    }

    void operator()(const KT::KTStopToken& stop)
    {
        const WithStop its(&stop);
        std::exchange(connection, nullptr)();
    }

private:
    std::function<void()> connection;
};

/// How cpp-httplib hands out connections.
class HttpServer::Queue : public httplib::TaskQueue {
public:
    explicit Queue(HttpServer& ofServer) : server(ofServer) {}

    void enqueue(std::function<void()> connection) override
    {
        try {
            KT::post(server.workers, "http", Ticket(std::move(connection)));
        } catch (const std::bad_alloc&) {
            // The ticket has refused it.
        }
    }

    void shutdown() override { server.workersEnded = server.workers.close(); }

private:
    HttpServer& server;
};

HttpServer::HttpServer(const Limits& within, KT::KTPoolOptions options, Handler toAnswer)
    : limits(within), handler(std::move(toAnswer)), workers(refusing(options))
{
    set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        return answer(request, response);
    });
    set_expect_100_continue_handler(
        [](const httplib::Request&, httplib::Response& response) { return response.status = 413; });
    // Not cpp-httplib's own, with which a second process could share the port unnoticed.
    set_socket_options([](socket_t socket) {
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
}

HttpServer::~HttpServer()
{
    stopped();
}

int HttpServer::start(const std::string& host, int port)
{
    const int bound = port == 0 ? bind_to_any_port(host) : bind_to_port(host, port) ? port : -1;
    if (bound <= 0 || ::listen(svr_sock_, backlog) != 0) {
        throw std::runtime_error("can't listen on " + host + ", port " + std::to_string(port));
    }
    std::promise<void> begun;
    new_task_queue = [this, &begun] {
        begun.set_value();
        return new Queue(*this);
    };
    listener = std::thread([this] { listen_after_bind(); });
    begun.get_future().wait();  // before that, stop() would do nothing
    return bound;
}

bool HttpServer::stopped()
{
    if (listener.joinable()) {
        isStopping = true;
        stop();
        listener.join();
        lingering.finish();
    }
    return workersEnded && unanswered == 0;
}

bool HttpServer::process_and_close_socket(socket_t socket)
{
    Descriptor connection(socket);
    if (currentStop != nullptr) {
        serve(std::move(connection), *currentStop);
    } else {
        unanswered += isStopping ? 1 : 0;
        sendRefusal(socket, 503, limits.retryAfterS);
        lingering.close(std::move(connection));
    }
    return true;
}

void HttpServer::serve(Descriptor socket, const KT::KTStopToken& stop)
{
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
        requireGet(request, response);
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
