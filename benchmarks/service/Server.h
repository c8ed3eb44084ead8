/// The service that is measured.
#pragma once

#include <string>
#include <thread>

#include <httplib.h>

#include "../../examples/ktserve/Root.h"

/// Serves what examples/ktserve does of /sum, /sleep and /healthz, by cpp-httplib's own server, on
/// any pool. A body ends with the parameter `id` of the request. One request a connection: a
/// connection that is kept open would hold its thread between requests, and with more clients than
/// threads the pools of fixed size would starve. One thread makes and ends it.
class Server : private httplib::Server {
public:
    /// Throws std::system_error if the root can't be opened, std::invalid_argument for an unknown
    /// pool, std::runtime_error if it can't listen.
    Server(const std::string& pool, const std::string& rootOfFiles);

    /// Blocks until all that was accepted has been answered.
    ~Server() override;

    int port() const { return itsPort; }

private:
    void route();

    const Root root;
    int itsPort = 0;
    std::thread listener;
};
