/// Where clients connect.
#pragma once

#include <functional>
#include <string>

#include "Descriptor.h"

/// A socket that listens. Any thread may call `stop`; the rest belongs to one thread at a time.
class Listener {
public:
    /// Takes a connection over. Doesn't block, and throws nothing.
    using Handler = std::function<void(Descriptor connection)>;

    /// Listens. Throws std::runtime_error if it can't do that there.
    ///
    /// \param host  numeric
    /// \param port  0: one that is free
    Listener(const std::string& host, int port);

    /// Where it listens.
    int port() const;

    /// Hands over each connection that it accepts, until it is stopped; then those whose clients
    /// had connected by then; then it closes the socket. When there is no room for a descriptor,
    /// clients wait in the kernel's queue until there is. Blocks for all that.
    void run(const Handler& handle);

    /// Lets `run` come to its end. Doesn't block.
    void stop();

private:
    bool untilClient() const;
    void acceptOne(const Handler& handle);
    void refuseNewClients() const;

    Descriptor socket;
    Descriptor stopEvent;
    bool isShort = false;  ///< of descriptors or memory: a record has been made of it
};
