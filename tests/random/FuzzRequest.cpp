/// libFuzzer's entry to what examples/ktserve reads from a request by itself: its first line, and
/// the path in that. What is opened must be below the root, and what it names.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "Finding.h"
#include "HttpError.h"
#include "Root.h"
#include "Target.h"
#include "TemporaryDirectory.h"

namespace {

/// A root with a file, a folder, and links that lead out and within; a secret beside it.
class Served {
public:
    Served()
    {
        std::filesystem::create_directories(folder() / "folder");
        std::ofstream(folder() / "abc") << "abc";
        std::ofstream(folder() / "folder/a b") << "abc";
        std::ofstream(std::filesystem::path(top.path) / "secret") << "secret";
        std::filesystem::create_symlink("../secret", folder() / "out");
        std::filesystem::create_symlink("..", folder() / "up");
        std::filesystem::create_symlink("folder", folder() / "linked");
    }

    std::filesystem::path folder() const { return std::filesystem::path(top.path) / "root"; }

private:
    TemporaryDirectory top;
};

/// Throws HttpError.
void openFile(std::string_view encoded)
{
    static const Served served;
    static const Root root(served.folder());
    const std::string path = pathOf(encoded);
    const Descriptor file = root.open(path);
    const std::filesystem::path opened =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file.get()));
    require(opened == std::filesystem::canonical(served.folder()) / path,
            "'" + path + "' is '" + opened.string() + "'");
}

/// Throws HttpError.
void askFor(std::string_view target)
{
    std::string_view path = pathIn(target);
    if (consume(path, "/sum/")) {
        openFile(path);
    } else if (consume(path, "/sleep/")) {
        const int milliseconds = millisecondsIn(path);
        require(milliseconds >= 0 && milliseconds <= 60000, "too long a sleep");
    } else {
        const int seconds = secondsIn(target);
        require(seconds >= 1 && seconds <= 60, "too long a timeline");
    }
}

/// The second word of the first line, or all without one.
std::string_view targetIn(std::string_view request)
{
    request = request.substr(0, request.find('\r'));
    const std::size_t space = request.find(' ');
    if (space == std::string_view::npos) {
        return request;
    }
    request.remove_prefix(space + 1);
    return request.substr(0, request.rfind(' '));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        askFor(targetIn({reinterpret_cast<const char*>(data), size}));
    } catch (const HttpError& error) {
        if (error.status() != 400 && error.status() != 403 && error.status() != 404) {
            std::fprintf(stderr, "%d\n", error.status());
            std::abort();
        }
    } catch (const Finding& finding) {
        std::fprintf(stderr, "%s\n", finding.what());
        std::abort();
    }
    return 0;
}
