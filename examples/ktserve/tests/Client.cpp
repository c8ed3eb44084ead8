#include "Client.h"

#include <cstdint>
#include <cstdlib>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

Client::Client(int port, const std::string& address)
    : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const timeval limit = {60, 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    // From another address than the service's. Else one that connects when nobody listens any more
    // may get that port for its own side, and so connect to itself.
    sockaddr_in from = {};
    from.sin_family = AF_INET;
    inet_pton(AF_INET, "127.0.0.3", &from.sin_addr);
    const int yes = 1;
    setsockopt(socket.get(), IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &yes, sizeof yes);
    static_cast<void>(bind(socket.get(), reinterpret_cast<const sockaddr*>(&from), sizeof from));
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, address.c_str(), &to.sin_addr);
    connected = connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
}

void Client::send(const std::string& bytes) const
{
    static_cast<void>(::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
}

Reply Client::reply() const
{
    std::string text;
    char buffer[4096];
    ssize_t size = 0;
    while ((size = recv(socket.get(), buffer, sizeof buffer, 0)) > 0) {
        text.append(buffer, static_cast<std::size_t>(size));
    }
    Reply reply;
    reply.isWhole = size == 0;
    const std::size_t end = text.find("\r\n\r\n");
    if (end != std::string::npos) {
        reply.status = std::atoi(text.substr(text.find(' ')).c_str());
        reply.head = text.substr(0, end + 2);
        reply.body = text.substr(end + 4);
    }
    return reply;
}

void Client::reset()
{
    const linger now = {1, 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    socket = Descriptor();
}

std::string requestOf(const std::string& path, const std::string& headers,
                      const std::string& method)
{
    return method + " " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n";
}

Reply get(int port, const std::string& path, const std::string& headers)
{
    const Client client(port);
    client.send(requestOf(path, headers));
    return client.reply();
}
