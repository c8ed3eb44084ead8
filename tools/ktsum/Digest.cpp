#include "Digest.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace {

/// Stays in the fast caches between the read and the digest: with 256 KiB, it takes half as long
/// again.
const std::size_t bufferSize = 32 * 1024;

[[noreturn]] void throwErrno()
{
    throw std::system_error(errno, std::generic_category());
}

/// An open file. Standard input is only borrowed.
class File {
public:
    explicit File(const std::string& path)
        : borrowed(path == "-"),
          descriptor(borrowed ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY))
    {
        if (descriptor < 0) {
            throwErrno();
        }
    }

    ~File()
    {
        if (!borrowed) {
            // close is a cancellation point, and a destructor mustn't be cancelled.
            int previous = PTHREAD_CANCEL_ENABLE;
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
            close(descriptor);
            pthread_setcancelstate(previous, nullptr);
        }
    }

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    /// Bytes read; 0 at the end.
    std::size_t read(std::vector<unsigned char>& buffer) const
    {
        for (;;) {
            const ssize_t size = ::read(descriptor, buffer.data(), buffer.size());
            if (size >= 0) {
                return static_cast<std::size_t>(size);
            }
            if (errno != EINTR) {
                throwErrno();
            }
        }
    }

private:
    bool borrowed;
    int descriptor;
};

struct FreeContext {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

void require(bool done)
{
    if (!done) {
        throw std::runtime_error("OpenSSL can't compute the digest");
    }
}

}  // namespace

Digest::Digest(const std::string& name)
    : upperName(name), md(EVP_MD_fetch(nullptr, name.c_str(), nullptr))
{
    if (!md || EVP_MD_get_size(md.get()) <= 0) {
        throw std::invalid_argument("unknown algorithm: " + name);
    }
    std::transform(upperName.begin(), upperName.end(), upperName.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
}

std::size_t Digest::hexLength() const
{
    return 2 * static_cast<std::size_t>(EVP_MD_get_size(md.get()));
}

std::string digestOf(const Digest& digest, const std::string& path,
                     const std::function<bool(std::size_t)>& onBytes)
{
    // A worker's own, kept from task to task.
    thread_local std::vector<unsigned char> buffer(bufferSize);
    thread_local const std::unique_ptr<EVP_MD_CTX, FreeContext> context(EVP_MD_CTX_new());

    const File file(path);
    require(context != nullptr);
    require(EVP_DigestInit_ex2(context.get(), digest.algorithm(), nullptr) == 1);
    while (const std::size_t size = file.read(buffer)) {
        require(EVP_DigestUpdate(context.get(), buffer.data(), size) == 1);
        if (!onBytes(size)) {
            return std::string();
        }
    }
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    require(EVP_DigestFinal_ex(context.get(), value, &length) == 1);
    std::string hex;
    for (unsigned i = 0; i < length; ++i) {
        hex += "0123456789abcdef"[value[i] >> 4];
        hex += "0123456789abcdef"[value[i] & 15];
    }
    return hex;
}
