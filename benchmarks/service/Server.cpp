#include "Server.h"

#include <chrono>
#include <future>
#include <stdexcept>
#include <utility>

#include <sys/socket.h>

#include "../../examples/ktserve/HttpError.h"
#include "../../examples/ktserve/Sum.h"
#include "TaskQueues.h"

namespace {

/// Connections that the kernel accepts ahead of the server: all of a burst. cpp-httplib's own 5
/// would have clients try again after a second, with any pool.
const int backlog = 4096;

void reply(const httplib::Request& request, httplib::Response& response, const std::string& text)
{
    response.set_content(text + " " + request.get_param_value("id") + "\n", "text/plain");
}

}  // namespace

Server::Server(const std::string& pool, const std::string& rootOfFiles) : root(rootOfFiles)
{
    const auto makeQueue = taskQueueOf(pool);
    route();
    set_keep_alive_max_count(1);
    set_tcp_nodelay(true);  // head and body of an answer are written one after the other
    itsPort = bind_to_any_port("127.0.0.1");
    if (itsPort <= 0 || ::listen(svr_sock_, backlog) != 0) {
        throw std::runtime_error("can't listen");
    }
    std::promise<void> begun;
    new_task_queue = [&] {
        httplib::TaskQueue* const queue = makeQueue();
        begun.set_value();
        return queue;
    };
    listener = std::thread([this] { listen_after_bind(); });
    begun.get_future().wait();  // before that, stop() would do nothing
}

Server::~Server()
{
    stop();
    listener.join();
}

void Server::route()
{
    Get("/healthz", [](const httplib::Request& request, httplib::Response& response) {
        reply(request, response, "alive");
    });
    Get(R"(/sleep/(\d{1,5}))", [](const httplib::Request& request, httplib::Response& response) {
        std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(request.matches[1])));
        reply(request, response, "slept");
    });
    Get("/sum/(.+)", [this](const httplib::Request& request, httplib::Response& response) {
        try {
            const Descriptor file = root.open(pathOf(request.matches[1].str()));
            reply(request, response, sha256Of(file.get(), KT::KTStopToken()));
        } catch (const HttpError& error) {
            response.status = error.status();
        }
    });
}
