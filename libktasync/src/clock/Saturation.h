/// Whether the machine has processors to spare.
#pragma once

namespace KT {
namespace detail {

/// Reads from /proc how many threads of the machine compute or wait for a processor. For one thread
/// at a time.
class Saturation {
public:
    Saturation() = default;
    ~Saturation();
    Saturation(const Saturation&) = delete;
    Saturation& operator=(const Saturation&) = delete;

    /// Takes a look. True while most of the last looks found no fewer runnable threads than
    /// processors, apart from the calling one; false if nothing can be read. Some microseconds.
    bool look();

    /// How many are runnable by the text of /proc/loadavg; 0 if that says nothing of it.
    static int runnableIn(const char* text);

private:
    int runnable();

    int descriptor = -1;
    int processors = 0;
    double level = 0;  ///< share of the looks that found so many, the last ones counting most
};

}  // namespace detail
}  // namespace KT
