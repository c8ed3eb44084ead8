/// The directory whose files are served.
#pragma once

#include <string>
#include <string_view>

#include "Descriptor.h"

/// The path that a URL names by `encoded`, what follows /sum/. Throws HttpError(400) for what can't
/// be the path of a file below the root: an absolute one, an empty part, `.` or `..`, NUL or a
/// slash that is encoded, an escape that is none.
std::string pathOf(std::string_view encoded);

/// A directory that nothing leads out of, opened once: renaming it doesn't matter. Immutable; all
/// threads use it at once.
class Root {
public:
    /// Throws std::system_error if the directory can't be opened, or if the kernel or its sandbox
    /// has no openat2.
    explicit Root(const std::string& directory);

    /// Opens a regular file below the root for reading. No symbolic link is followed, wherever it
    /// stands in the path and wherever it leads. Throws HttpError: 403 for a link, for what isn't a
    /// file, and for a file that this process mustn't read; 404 if there is none; 503 if it has too
    /// many open. Blocks as the disk does.
    Descriptor open(const std::string& path) const;

private:
    Descriptor directory;
};
