#include "Progress.h"

#include <cstdio>
#include <exception>
#include <utility>

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Report.h"

namespace {

const auto period = std::chrono::milliseconds(200);

/// Columns of the terminal behind standard error.
std::size_t terminalWidth()
{
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

void countAll(const KT::KTStopToken& stop, std::unique_ptr<Source> source, Totals& totals)
{
    Entry entry;
    try {
        while (!stop.stopRequested() && source->next(entry)) {
            struct stat status {};
            if (entry.improperLine == 0) {
                ++totals.files;
            }
            if (stat(entry.path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
                totals.bytes += static_cast<std::uint64_t>(status.st_size);
            }
        }
        totals.complete = !stop.stopRequested();
    } catch (const std::exception&) {
    }
}

std::string formatProgress(const ProgressFigures& figures)
{
    const double bytes = static_cast<double>(figures.bytes);
    const double all = static_cast<double>(figures.allBytes);
    const bool counted = figures.allFiles > 0;
    const double rate = figures.seconds > 0 ? bytes / figures.seconds : 0;
    std::string text = std::to_string(figures.files) +
                       (counted ? " of " + std::to_string(figures.allFiles) : "") + " files, " +
                       formatBytes(bytes) + (counted ? " of " + formatBytes(all) : "") + ", " +
                       formatBytes(rate) + "/s, ";
    if (counted && rate > 0) {
        text += formatSeconds(all > bytes ? (all - bytes) / rate : 0) + " left, ";
    }
    return text + std::to_string(figures.busy) + " of " + std::to_string(figures.workers) +
           " workers busy";
}

Progress::Progress() : terminal(isatty(STDERR_FILENO) != 0), shown(std::chrono::steady_clock::now())
{
}

bool Progress::isDue() const
{
    return terminal && std::chrono::steady_clock::now() - shown >= period;
}

void Progress::show(const std::string& text)
{
    shown = std::chrono::steady_clock::now();
    visible = true;
    const std::string line = "\r\033[K" + text.substr(0, terminalWidth() - 1);
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void Progress::clear()
{
    if (visible) {
        std::fputs("\r\033[K", stderr);
        visible = false;
    }
}
