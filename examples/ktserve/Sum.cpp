#include "Sum.h"

#include <cerrno>
#include <memory>

#include <openssl/evp.h>
#include <unistd.h>

#include "HttpError.h"

namespace {

struct FreeContext {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

void require(bool done)
{
    if (!done) {
        throw HttpError(500, "the checksum can't be computed");
    }
}

std::size_t readSome(int file, unsigned char* buffer, std::size_t size)
{
    for (;;) {
        const ssize_t got = read(file, buffer, size);
        if (got >= 0) {
            return static_cast<std::size_t>(got);
        }
        if (errno != EINTR) {
            throw HttpError(500, "the file can't be read");
        }
    }
}

std::string hexOf(const unsigned char* bytes, unsigned size)
{
    std::string hex;
    for (unsigned i = 0; i < size; ++i) {
        hex += "0123456789abcdef"[bytes[i] >> 4];
        hex += "0123456789abcdef"[bytes[i] & 15];
    }
    return hex;
}

}  // namespace

std::string sha256Of(int file, const KT::KTStopToken& stop)
{
    const std::unique_ptr<EVP_MD_CTX, FreeContext> context(EVP_MD_CTX_new());
    require(context != nullptr);
    require(EVP_DigestInit_ex2(context.get(), EVP_sha256(), nullptr) == 1);
    unsigned char buffer[32 * 1024];
    while (const std::size_t size = readSome(file, buffer, sizeof buffer)) {
        require(EVP_DigestUpdate(context.get(), buffer, size) == 1);
        if (stop.stopRequested()) {
            throw HttpError(503, "the service ends");
        }
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    require(EVP_DigestFinal_ex(context.get(), digest, &length) == 1);
    return hexOf(digest, length);
}
