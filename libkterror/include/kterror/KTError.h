/// \file
/// The platform's error class.
#pragma once

#include <exception>
#include <string>

#include <kterror/export.h>

namespace KT {

/// An error with the place it comes from. An immutable value: it may be read from several threads
/// at once, and copied, which may throw std::bad_alloc. It owns its texts. Nothing here blocks.
/// \code
/// throw KT::KTError("storage", "open", "no such volume", "storage/volume.cpp", 42);
/// \endcode
///
/// \ingroup kterror
class KTERROR_EXPORT KTError : public std::exception {
public:
    /// Copies all five. Throws std::bad_alloc.
    ///
    /// \param module       where it comes from: a library, or a part of one
    /// \param method       the operation that failed
    /// \param description  why
    /// \param file         the source file; it may be null, which counts as empty
    /// \param line         its line
    KTError(const std::string& module, const std::string& method, const std::string& description,
            const char* file, unsigned line);
    /// A copy. Throws std::bad_alloc.
    KTError(const KTError&) = default;
    /// Becomes a copy. Throws std::bad_alloc.
    ///
    /// \return  this error
    KTError& operator=(const KTError&) = default;
    /// Throws nothing.
    ~KTError() override;

    /// One text that names them all: "module::method: description (file:line)".
    ///
    /// \return  a copy of it; throws std::bad_alloc
    std::string toString() const;

    /// The same text, without a copy.
    ///
    /// \return  a text that lives as long as this object
    const char* what() const noexcept override;

private:
    std::string text;
};

}  // namespace KT
