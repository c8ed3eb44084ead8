#include "Exchange.h"

#include <cerrno>
#include <system_error>

#include <netinet/in.h>
#include <sys/socket.h>

Exchange::Exchange(int port, const Request& request, Clock::time_point dueAt)
    : descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)),
      due(dueAt),
      isBlocking(request.blocks),
      unsent("GET " + request.target + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n"),
      answer(request.body)
{
    if (descriptor.get() < 0) {
        throw std::system_error(errno, std::generic_category(), "no socket");
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
        errno != EINPROGRESS) {
        failed = "no connection";
    }
}

bool Exchange::proceed()
{
    return failed.empty() && sendRest() && receive();
}

bool Exchange::sendRest()
{
    while (!unsent.empty()) {
        const ssize_t size = send(socket(), unsent.data(), unsent.size(), MSG_NOSIGNAL);
        if (size < 0) {
            if (errno == EAGAIN || errno == EINPROGRESS) {
                return true;
            }
            failed = "not sent";
            return false;
        }
        unsent.erase(0, static_cast<std::size_t>(size));
    }
    return true;
}

/// Behind a whole answer it waits for the end, since there might be another one.
bool Exchange::receive()
{
    char buffer[4096];
    for (;;) {
        const ssize_t size = recv(socket(), buffer, sizeof buffer, 0);
        if (size == 0) {
            return false;
        }
        if (size < 0) {
            const bool isOpen = errno == EAGAIN || errno == ENOTCONN;
            failed = isOpen ? "" : "connection lost";
            return isOpen;
        }
        if (answer.add({buffer, static_cast<std::size_t>(size)}) && !isWhole) {
            isWhole = true;
            answered = Clock::now();
        }
        if (!answer.fault(false).empty()) {
            return false;
        }
    }
}
