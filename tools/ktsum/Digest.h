/// Message digests, by OpenSSL's EVP.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include <openssl/evp.h>

/// An algorithm by its name. Immutable: all threads use it at once.
class Digest {
public:
    /// Throws std::invalid_argument if OpenSSL doesn't know the name.
    explicit Digest(const std::string& name);

    /// The name as checksum lists tag it: in capitals, "SHA256".
    const std::string& tag() const { return upperName; }

    /// Digits of a digest in hexadecimal.
    std::size_t hexLength() const;

    const EVP_MD* algorithm() const { return md.get(); }

private:
    struct Free {
        void operator()(EVP_MD* algorithm) const { EVP_MD_free(algorithm); }
    };
    std::string upperName;
    std::unique_ptr<EVP_MD, Free> md;
};

/// The digest of the file at `path` ("-": standard input) in lower-case hexadecimal. `onBytes` is
/// told the size of each piece read, and returns false to stop; the result is then empty. Throws
/// std::system_error if the file can't be read, std::runtime_error if OpenSSL fails. A cancellation
/// point: a cancelled thread leaves no file open.
std::string digestOf(const Digest& digest, const std::string& path,
                     const std::function<bool(std::size_t)>& onBytes);
