/// What a server sends on a connection.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Whether the bytes that came on one connection are the one answer expected. A value that belongs
/// to one thread.
class Answer {
public:
    /// \param expected  the body of the answer
    explicit Answer(std::string expected) : body(std::move(expected)) {}

    /// The next bytes. True once the answer is whole, or can't become right any more.
    bool add(std::string_view bytes);

    /// What is wrong with it; empty if nothing is.
    ///
    /// \param isClosed  the server has closed the connection: what is missing won't come
    std::string_view fault(bool isClosed) const;

private:
    std::string body;
    std::string received;
    std::size_t head = 0;  ///< bytes, with the empty line at its end; 0: not all have come
};
