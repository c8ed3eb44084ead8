/// A directory that is gone with its owner.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class TemporaryDirectory {
public:
    TemporaryDirectory()
    {
        std::string name = (std::filesystem::temp_directory_path() / "kt-XXXXXX").string();
        root = mkdtemp(name.data());
        path = root + "/files";
        std::filesystem::create_directory(path);
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(root); }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string path;  ///< below a directory of its own, where there is room beside it

private:
    std::string root;
};
