/// Answers that are given without cpp-httplib, to requests that were not read.
#pragma once

#include <ktasync/KTScopedPool.h>

#include "Descriptor.h"

/// Sends an answer of this status, with Retry-After if `retryAfterS` isn't 0, as far as the socket
/// takes it: doesn't block.
void sendRefusal(int socket, int status, int retryAfterS = 0);

/// Closes sockets whose clients may still be sending. Were they closed at once, the kernel would
/// reset the connection, and the client might lose the answer to that.
///
/// Any thread may use it. It has a small pool of its own; what is too much for that is closed at
/// once.
class LingeringClose {
public:
    LingeringClose();

    /// Closes it when the client has closed its side, or after a second. Doesn't block.
    void close(Descriptor socket);

    /// Waits until all are closed, which is two seconds at most. What comes later is closed at
    /// once.
    void finish() { pool.close(); }

private:
    KT::KTScopedPool pool;
};
