/// A request that can't be served.
#pragma once

#include <stdexcept>
#include <string>

/// Thrown by what serves a request; the client gets the status and the text.
class HttpError : public std::runtime_error {
public:
    HttpError(int withStatus, const std::string& text)
        : std::runtime_error(text), httpStatus(withStatus)
    {
    }

    int status() const { return httpStatus; }

private:
    int httpStatus;
};
