/// A client that may send anything.
#pragma once

#include <string>

#include "Descriptor.h"

/// What came back.
struct Reply {
    int status = 0;  ///< 0: nothing
    std::string head;
    std::string body;
    bool isWhole = false;  ///< the server has closed its side, and not reset the connection
};

/// A connection to 127.0.0.1. What takes longer than a minute fails.
class Client {
public:
    /// Connects; isConnected says whether that worked.
    explicit Client(int port, const std::string& address = "127.0.0.1");

    bool isConnected() const { return connected; }
    void send(const std::string& bytes) const;

    /// Reads until the server closes.
    Reply reply() const;

    /// Closes it so that the server's side is reset.
    void reset();

    int descriptor() const { return socket.get(); }

private:
    Descriptor socket;
    bool connected;
};

/// The answer to a GET of a path, which is sent as it is.
Reply get(int port, const std::string& path, const std::string& headers = "");

/// A request to send.
std::string requestOf(const std::string& path, const std::string& headers = "",
                      const std::string& method = "GET");
