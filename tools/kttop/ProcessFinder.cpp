#include "ProcessFinder.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "ProcFile.h"
#include "ProcessReader.h"
#include "Text.h"
#include "ThreadName.h"

namespace {

/// As many are named where several match.
const std::size_t namedMatches = 8;

/// The number that all of the text is, if it may be a pid.
std::optional<int> asPid(const std::string& text)
{
    int pid = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, pid);
    return error == std::errc() && rest == end && pid > 0 ? std::optional<int>(pid) : std::nullopt;
}

bool isDigits(const std::string& text)
{
    return text.find_first_not_of("0123456789") == std::string::npos;
}

bool hasName(const std::filesystem::path& folder, const std::string& name)
{
    std::string comm = readFile(AT_FDCWD, folder / "comm").value_or("");
    if (!comm.empty() && comm.back() == '\n') {
        comm.pop_back();
    }
    if (comm == name.substr(0, keptBytes) &&
        (name.size() <= keptBytes || comm.size() == keptBytes)) {
        return true;
    }
    const std::string command = readFile(AT_FDCWD, folder / "cmdline").value_or("");
    const std::string file = command.substr(0, command.find('\0'));
    return file.substr(file.rfind('/') + 1) == name;
}

std::vector<int> processesNamed(const std::string& procfs, const std::string& name)
{
    std::vector<int> found;
    std::error_code error;
    std::filesystem::directory_iterator entry(procfs, error);
    if (error) {
        throw ProcessError(procfs + " can't be read: " + error.message());
    }
    for (; entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::optional<int> pid = asPid(entry->path().filename());
        if (pid && *pid != getpid() && hasName(entry->path(), name)) {
            found.push_back(*pid);
        }
        if (error) {
            break;
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace

int findProcess(const std::string& procfs, const std::string& target)
{
    if (isDigits(target)) {
        const std::optional<int> pid = asPid(target);
        if (!pid) {
            throw ProcessError("there is no process " + target);
        }
        return *pid;
    }
    const std::vector<int> found = processesNamed(procfs, target);
    if (found.empty()) {
        throw ProcessError("no process is called '" + inAscii(target) + "'");
    }
    if (found.size() > 1) {
        std::string pids;
        for (std::size_t i = 0; i < std::min(found.size(), namedMatches); ++i) {
            pids += (i == 0 ? "" : ", ") + std::to_string(found[i]);
        }
        throw ProcessError(std::to_string(found.size()) + " processes are called '" +
                           inAscii(target) + "' (" + pids +
                           (found.size() > namedMatches ? ", ..." : "") + "); give a pid");
    }
    return found.front();
}
