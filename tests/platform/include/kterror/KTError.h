/// A client's own error class.
#pragma once

#include <string>

namespace KT {

class __attribute__((visibility("default"))) KTError {
public:
    KTError(const std::string& errorModule, const std::string& errorMethod,
            const std::string& errorDescription, const char*, unsigned)
        : text(errorModule + "/" + errorMethod + "/" + errorDescription)
    {
    }
    std::string toString() const { return text; }

private:
    std::string text;
};

}  // namespace KT
