#include <kterror/KTError.h>

namespace KT {

KTError::KTError(const std::string& module, const std::string& method,
                 const std::string& description, const char* file, unsigned line)
    : text(module + "::" + method + ": " + description + " (" + (file != nullptr ? file : "") +
           ":" + std::to_string(line) + ")")
{
}

KTError::~KTError() = default;

std::string KTError::toString() const
{
    return text;
}

const char* KTError::what() const noexcept
{
    return text.c_str();
}

}  // namespace KT
