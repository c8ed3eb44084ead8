/// The platform's error class.
#pragma once

#include <exception>
#include <string>

#include <kterror/export.h>

namespace KT {

/// An error with the place it comes from. An immutable value: it may be read from several threads
/// at once, and copied, which may throw std::bad_alloc.
///
///     throw KT::KTError("storage", "open", "no such volume", "storage/volume.cpp", 42);
class KTERROR_EXPORT KTError : public std::exception {
public:
    /// Copies all five. `file` may be null, which counts as empty.
    KTError(const std::string& module, const std::string& method, const std::string& description,
            const char* file, unsigned line);
    KTError(const KTError&) = default;
    KTError& operator=(const KTError&) = default;
    ~KTError() override;

    /// One text that names them all: "module::method: description (file:line)".
    std::string toString() const;

    /// The same text; it lives as long as this object.
    const char* what() const noexcept override;

private:
    std::string text;
};

}  // namespace KT
