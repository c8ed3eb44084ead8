#include "Root.h"

#include <cerrno>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "HttpError.h"

namespace {

std::optional<int> hexDigit(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return std::nullopt;
}

std::string decode(std::string_view encoded)
{
    std::string decoded;
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        char c = encoded[i];
        if (c == '%') {
            const auto high = i + 1 < encoded.size() ? hexDigit(encoded[i + 1]) : std::nullopt;
            const auto low = i + 2 < encoded.size() ? hexDigit(encoded[i + 2]) : std::nullopt;
            if (!high || !low) {
                throw HttpError(400, "the path has an escape that is none");
            }
            i += 2;
            c = static_cast<char>(*high * 16 + *low);
            if (c == '/') {
                throw HttpError(400, "the path has an encoded slash");
            }
        }
        if (c == '\0') {
            throw HttpError(400, "the path has a NUL");
        }
        decoded += c;
    }
    return decoded;
}

void requireProperPart(std::string_view part)
{
    if (part.empty()) {
        throw HttpError(400, "the path is absolute, or has an empty part");
    }
    if (part == "." || part == "..") {
        throw HttpError(400, "the path has a part . or ..");
    }
}

/// -1 and errno. There is no wrapper in the C library.
int openBeneath(int directory, const char* path, std::uint64_t flags)
{
    open_how how = {};
    how.flags = flags;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    return static_cast<int>(syscall(SYS_openat2, directory, path, &how, sizeof how));
}

[[noreturn]] void refuse(int error)
{
    switch (error) {
        case ENOENT:
        case ENOTDIR: throw HttpError(404, "there is no such file");
        case ELOOP:
        case EXDEV: throw HttpError(403, "the path leads over a symbolic link");
        case EACCES:
        case EPERM:
        case ENXIO: throw HttpError(403, "the file can't be read");
        case ENAMETOOLONG: throw HttpError(400, "the path is too long");
        case EMFILE:
        case ENFILE: throw HttpError(503, "too many files are open");
        default: throw HttpError(500, "the file can't be opened");
    }
}

}  // namespace

std::string pathOf(std::string_view encoded)
{
    std::string path = decode(encoded);
    std::string_view rest = path;
    for (std::size_t slash = 0; slash != std::string_view::npos;) {
        slash = rest.find('/');
        requireProperPart(rest.substr(0, slash));
        rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
    }
    return path;
}

Root::Root(const std::string& path)
    : directory(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))
{
    if (directory.get() < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    const Descriptor probe(openBeneath(directory.get(), ".", O_PATH | O_CLOEXEC));
    if (probe.get() < 0) {
        throw std::system_error(errno, std::generic_category(), "openat2");
    }
}

Descriptor Root::open(const std::string& path) const
{
    // O_NONBLOCK: the open of a pipe without a writer would block.
    const std::uint64_t flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    Descriptor file(openBeneath(directory.get(), path.c_str(), flags));
    if (file.get() < 0) {
        refuse(errno);
    }
    struct stat status = {};
    if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw HttpError(403, "that is no regular file");
    }
    return file;
}
