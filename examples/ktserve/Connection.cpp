#include "Connection.h"

#include <algorithm>
#include <cerrno>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

constexpr std::string_view endOfHead = "\r\n\r\n";

bool hasControls(std::string_view head)
{
    return std::any_of(head.begin(), head.end(), [](unsigned char c) {
        return (c < ' ' && c != '\r' && c != '\n' && c != '\t') || c == 127;
    });
}

using NameOf = int (*)(int, sockaddr*, socklen_t*);

void addressOf(int socket, NameOf nameOf, std::string& ip, int& port)
{
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    char text[INET_ADDRSTRLEN];
    if (nameOf(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
        address.sin_family == AF_INET &&
        inet_ntop(AF_INET, &address.sin_addr, text, sizeof text) != nullptr) {
        ip = text;
        port = ntohs(address.sin_port);
    }
}

}  // namespace

bool waitFor(int socket, short events, std::chrono::steady_clock::time_point deadline)
{
    using std::chrono::milliseconds;
    for (;;) {
        const auto left =
            std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd entry = {socket, events, 0};
        const int found = poll(&entry, 1, static_cast<int>(std::max<long>(left.count(), 0)));
        if (found > 0) {
            return true;
        }
        if (found == 0 || errno != EINTR) {
            return false;
        }
    }
}

Connection::Connection(Descriptor toOwn, const Limits& within)
    : socketOf(std::move(toOwn)),
      limits(within),
      deadline(Clock::now() + std::chrono::milliseconds(within.clientTimeoutMs))
{
    // The head and the body of an answer are written one after the other.
    const int yes = 1;
    setsockopt(socketOf.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

int Connection::readHead()
{
    std::size_t end = std::string::npos;
    while (end == std::string::npos) {
        if (buffer.size() >= limits.headBytes) {
            return 431;
        }
        const std::size_t before = buffer.size();
        buffer.resize(limits.headBytes);
        const ssize_t size = receive(&buffer[before], buffer.size() - before);
        buffer.resize(before + static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        if (size <= 0) {
            return size < 0 && errno == ETIMEDOUT && !buffer.empty() ? 408 : -1;
        }
        const std::size_t from = before < endOfHead.size() ? 0 : before - endOfHead.size();
        end = buffer.find(endOfHead, from);
    }
    buffer.resize(end + endOfHead.size());
    return hasControls(buffer) ? 400 : 0;
}

ssize_t Connection::receive(char* bytes, std::size_t size)
{
    for (;;) {
        const ssize_t got = recv(socketOf.get(), bytes, size, MSG_DONTWAIT);
        if (got >= 0 || (errno != EAGAIN && errno != EINTR)) {
            return got;
        }
        if (!waitFor(socketOf.get(), POLLIN, deadline)) {
            errno = ETIMEDOUT;
            return -1;
        }
    }
}

bool Connection::is_readable() const
{
    return taken < buffer.size();
}

bool Connection::is_writable() const
{
    return waitFor(socketOf.get(), POLLOUT, deadline);
}

ssize_t Connection::read(char* bytes, std::size_t size)
{
    const std::size_t copied = buffer.copy(bytes, size, taken);
    taken += copied;
    return static_cast<ssize_t>(copied);
}

ssize_t Connection::write(const char* bytes, std::size_t size)
{
    if (!isWriting) {
        isWriting = true;
        deadline = Clock::now() + std::chrono::milliseconds(limits.clientTimeoutMs);
    }
    for (;;) {
        const ssize_t sent = send(socketOf.get(), bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0 || (errno != EAGAIN && errno != EINTR)) {
            return sent;
        }
        if (!waitFor(socketOf.get(), POLLOUT, deadline)) {
            return -1;
        }
    }
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const
{
    addressOf(socketOf.get(), getpeername, ip, port);
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const
{
    addressOf(socketOf.get(), getsockname, ip, port);
}
