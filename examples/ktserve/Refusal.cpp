#include "Refusal.h"

#include <cerrno>
#include <chrono>
#include <string>
#include <utility>

#include <httplib.h>
#include <poll.h>
#include <sys/socket.h>

#include <ktasync/post.h>

#include "Connection.h"

namespace {

KT::KTPoolOptions fewThreads()
{
    KT::KTPoolOptions options;
    options.threads = 1;
    options.maxThreads = 4;
    options.maxQueued = 256;
    options.whenFull = KT::KTPoolOptions::WhenFull::refuse;
    options.finishTimeoutMs = 1000;
    return options;
}

const char* reasonOf(int status)
{
    switch (status) {
        case 400: return "Bad Request";
        case 408: return "Request Timeout";
        case 431: return "Request Header Fields Too Large";
        default: return "Service Unavailable";
    }
}

void dropInput(int socket)
{
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + std::chrono::seconds(1);
    char dropped[4096];
    while (steady_clock::now() < deadline && waitFor(socket, POLLIN, deadline)) {
        const ssize_t size = recv(socket, dropped, sizeof dropped, MSG_DONTWAIT);
        if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) {
            return;
        }
    }
}

}  // namespace

void sendRefusal(int socket, int status, int retryAfterS)
{
    const std::string reason = reasonOf(status);
    std::string answer = "HTTP/1.1 " + std::to_string(status) + " " + reason + "\r\n";
    if (retryAfterS != 0) {
        answer += "Retry-After: " + std::to_string(retryAfterS) + "\r\n";
    }
    answer += "Connection: close\r\nContent-Type: text/plain\r\nContent-Length: " +
              std::to_string(reason.size() + 1) + "\r\n\r\n" + reason + "\n";
    // If not even that little goes out, the client has gone.
    static_cast<void>(send(socket, answer.data(), answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
}

LingeringClose::LingeringClose() : pool(fewThreads()) {}

void LingeringClose::close(Descriptor socket)
{
    shutdown(socket.get(), SHUT_WR);
    KT::post(pool, "linger", [socket = std::move(socket)] { dropInput(socket.get()); });
}
