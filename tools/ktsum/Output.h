/// Standard output, and lines on standard error.
#pragma once

#include <stdexcept>
#include <string>

/// Standard output can't be written to; `what` says why. Nothing more can be said to the reader.
class OutputError : public std::runtime_error {
public:
    OutputError(const std::string& why, bool readerIsGone)
        : std::runtime_error(why), closed(readerIsGone)
    {
    }
    const bool closed;  ///< the reader has closed the pipe: that is no error of ours
};

/// Appends to standard output. Throws OutputError.
void print(const std::string& text);

/// Writes what is still buffered. Throws OutputError.
void flushOutput();

/// "ktsum: MESSAGE" on standard error, one line.
void complain(const std::string& message);
