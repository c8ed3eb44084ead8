#include "Listener.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include "Connection.h"
#include "Log.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Connections that the kernel accepts ahead of the server.
const int backlog = 1024;

/// Nothing tells that a descriptor or memory has become free.
const std::chrono::milliseconds pauseWithoutRoom(10);

/// A client that has begun to connect gets that long to complete it, as long as a packet takes to
/// come back.
const std::chrono::milliseconds handshakeTime(100);

/// For all of them.
const std::chrono::milliseconds longestDrain(1000);

sockaddr_in addressOf(const std::string& host, int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
        throw std::runtime_error(host + " is no address");
    }
    return address;
}

bool listensAt(int socket, const sockaddr_in& address)
{
    // Connections of an earlier process that are still in the kernel don't keep the port. Not
    // SO_REUSEPORT, with which a second process could share it unnoticed.
    const int yes = 1;
    return setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) == 0 &&
           bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
           listen(socket, backlog) == 0;
}

}  // namespace

Listener::Listener(const std::string& host, int port)
    : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      stopEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (socket.get() < 0 || stopEvent.get() < 0 ||
        !listensAt(socket.get(), addressOf(host, port))) {
        throw std::runtime_error("can't listen on " + host + ", port " + std::to_string(port) +
                                 ": " + std::generic_category().message(errno));
    }
}

int Listener::port() const
{
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

void Listener::stop()
{
    eventfd_write(stopEvent.get(), 1);
}

void Listener::run(const Handler& handle)
{
    while (untilClient()) {
        acceptOne(handle);
    }
    // Closing the socket resets the connections in its queue. So no further ones may get there
    // while it is emptied.
    refuseNewClients();
    const auto deadline = Clock::now() + longestDrain;
    while (Clock::now() < deadline &&
           waitFor(socket.get(), POLLIN, std::min(Clock::now() + handshakeTime, deadline))) {
        acceptOne(handle);
    }
    socket = Descriptor();
}

/// False when it is stopped.
bool Listener::untilClient() const
{
    pollfd entries[] = {{socket.get(), POLLIN, 0}, {stopEvent.get(), POLLIN, 0}};
    while (poll(entries, std::size(entries), -1) <= 0) {
        // Interrupted, or the kernel is out of memory.
    }
    return entries[1].revents == 0;
}

void Listener::acceptOne(const Handler& handle)
{
    Descriptor connection(accept4(socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (connection.get() >= 0) {
        isShort = false;
        handle(std::move(connection));
        return;
    }
    const int error = errno;
    if (error != EMFILE && error != ENFILE && error != ENOMEM && error != ENOBUFS) {
        return;  // that client has gone
    }
    if (!isShort) {
        isShort = true;
        logWarning("clients have to wait: " + std::generic_category().message(error));
    }
    std::this_thread::sleep_for(pauseWithoutRoom);
}

/// Their packets are dropped as if they were lost: such a client tries again after a second, and
/// then is refused, or gets to the process that listens there next. Where the kernel doesn't allow
/// it, the last few clients may be reset.
void Listener::refuseNewClients() const
{
    const unsigned flagsOfTcp = 13;
    const unsigned syn = 0x02;
    const unsigned ack = 0x10;
    sock_filter dropSyn[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, flagsOfTcp),
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, syn | ack),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, syn, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0),
        BPF_STMT(BPF_RET | BPF_K, 0xffffffff),
    };
    const sock_fprog program = {std::size(dropSyn), dropSyn};
    setsockopt(socket.get(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}
