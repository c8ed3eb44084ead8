/// A client's connection, with limits.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include <httplib.h>

#include "Descriptor.h"
#include "Options.h"

/// The stream that cpp-httplib reads a request from and writes the answer to. cpp-httplib limits
/// each single read and line; this limits the request as a whole. It ends behind the head: there
/// are no bodies. Belongs to one thread.
class Connection : public httplib::Stream {
public:
    /// The time that the client may take to send its request begins.
    ///
    /// \param toOwn   the connected socket
    /// \param within  kept by reference
    Connection(Descriptor toOwn, const Limits& within);

    /// Reads the head of a request: its first line and its headers. Blocks, within the limits.
    ///
    /// \return  0, or the status to refuse the request with: 400 for control characters in it, 408
    ///          when the time is over, 431 for one that is too long; -1 if the client has gone
    int readHead();

    /// Gives the socket away.
    Descriptor release() { return std::move(socketOf); }

    // Of httplib::Stream:
    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* bytes, std::size_t size) override;
    ssize_t write(const char* bytes, std::size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return socketOf.get(); }

private:
    using Clock = std::chrono::steady_clock;

    ssize_t receive(char* bytes, std::size_t size);

    Descriptor socketOf;
    const Limits& limits;
    Clock::time_point deadline;  ///< of reading, then of writing
    bool isWriting = false;
    std::string buffer;     ///< the head
    std::size_t taken = 0;  ///< of it
};

/// Waits until the socket may be read from, or written to: POLLIN or POLLOUT. False when the time
/// is over.
bool waitFor(int socket, short events, std::chrono::steady_clock::time_point deadline);
