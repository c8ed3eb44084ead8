/// The files named on a command line.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Source.h"

/// The paths given, in their order; in place of a directory, all regular files below it, in the
/// order of their path's bytes. Symbolic links are followed only where they are given. A directory
/// that can't be read is an entry with an error.
///
/// Holds the names of the directories on the way to the current file, and nothing else.
class FileList : public Source {
public:
    explicit FileList(std::vector<std::string> paths);
    bool next(Entry& entry) override;

private:
    /// A directory that is being walked. Names of directories end in '/', which also puts them
    /// where their files belong in the order.
    struct Directory {
        std::string path;
        std::vector<std::string> names;
        std::size_t position = 0;
    };

    bool enter(const std::string& path, Entry& failed);

    std::vector<std::string> paths;
    std::size_t position = 0;
    std::vector<Directory> walked;
};
