#include "FileList.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using OpenDirectory = std::unique_ptr<DIR, CloseDirectory>;

/// DT_REG, DT_DIR or something else; asks the file where the directory doesn't say.
unsigned char typeOf(DIR* directory, const dirent* entry)
{
    if (entry->d_type != DT_UNKNOWN) {
        return entry->d_type;
    }
    struct stat status {};
    if (fstatat(dirfd(directory), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return DT_REG;  // opening it will say what is wrong
    }
    return static_cast<unsigned char>(IFTODT(status.st_mode));
}

bool isDirectory(const std::string& path)
{
    struct stat status {};
    return path != "-" && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

FileList::FileList(std::vector<std::string> givenPaths) : paths(std::move(givenPaths)) {}

bool FileList::next(Entry& entry)
{
    entry = Entry();
    for (;;) {
        if (walked.empty()) {
            if (position == paths.size()) {
                return false;
            }
            entry.path = paths[position++];
            if (!isDirectory(entry.path) || !enter(entry.path, entry)) {
                return true;
            }
            continue;
        }
        Directory& directory = walked.back();
        if (directory.position == directory.names.size()) {
            walked.pop_back();
            continue;
        }
        const std::string& name = directory.names[directory.position++];
        entry.path = directory.path + name;
        if (name.back() != '/') {
            return true;
        }
        entry.path.pop_back();
        if (!enter(entry.path, entry)) {
            return true;
        }
    }
}

// Reads a directory and walks it next. False, and `failed` says why, if it can't be read.
bool FileList::enter(const std::string& path, Entry& failed)
{
    const OpenDirectory directory(opendir(path.c_str()));
    if (!directory) {
        failed.error = std::strerror(errno);
        return false;
    }
    Directory entered;
    entered.path = path.back() == '/' ? path : path + '/';
    errno = 0;
    while (const dirent* const found = readdir(directory.get())) {
        const std::string name = found->d_name;
        const unsigned char type = typeOf(directory.get(), found);
        if (type == DT_REG) {
            entered.names.push_back(name);
        } else if (type == DT_DIR && name != "." && name != "..") {
            entered.names.push_back(name + '/');
        }
        errno = 0;
    }
    if (errno != 0) {
        failed.error = std::strerror(errno);
        return false;
    }
    std::sort(entered.names.begin(), entered.names.end());
    walked.push_back(std::move(entered));
    return true;
}
